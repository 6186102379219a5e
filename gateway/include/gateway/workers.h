#pragma once

#include <memory>

#include "gateway/GatewayOptions.h"
#include "supervisor/Supervisor.h"

namespace gateway {

/// Interpreters in processes of their own, which `supervisor` starts; it must outlive the gateway.
GatewayOptions::MakePort workerPorts(supervisor::Supervisor& supervisor);

}  // namespace gateway
