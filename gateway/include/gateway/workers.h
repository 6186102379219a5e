#pragma once

#include <filesystem>

#include "gateway/GatewayOptions.h"
#include "supervisor/Supervisor.h"

namespace gateway {

/// Interpreters in processes of their own, which `supervisor` starts; it must outlive the gateway. Those that
/// name no folder or no virtual environment have these, either of which may be empty.
GatewayOptions::MakePort workerPorts(supervisor::Supervisor& supervisor, std::filesystem::path folder = {},
                                     std::filesystem::path venv = {});

}  // namespace gateway
