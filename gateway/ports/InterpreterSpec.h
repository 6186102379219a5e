#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "supervisor/Culler.h"
#include "supervisor/WorkerSpec.h"

namespace gateway::ports {

/// When an interpreter whose process has ended gets a new one.
enum class RestartMode {
    Demand,  ///< with the next request
    Always,  ///< at once
    Never,   ///< when a client asks for a restart
};

/// How the process of an interpreter is started, and when again.
struct InterpreterSpec {
    supervisor::WorkerSpec worker;
    /// What the host's configuration begins with.
    std::map<std::string, std::string> configuration{};
    RestartMode restart = RestartMode::Demand;
    supervisor::CullerOptions culling{};
    std::size_t requests = 1000;  ///< how many may be unanswered
};

}  // namespace gateway::ports
