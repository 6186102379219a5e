#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "supervisor/DeathRecord.h"

namespace gateway::ports {

/// What is known of an interpreter at one moment. Texts are those of docs/interpreters.md.
struct InterpreterState {
    std::string state = "ready";    ///< "absent", "starting", "ready", "stopping", "dead" or "failed"
    std::string activity = "idle";  ///< of one that is ready: "busy", "idle" or "input"
    std::string health = "ok";      ///< "ok"; "deaf": native code keeps it from looking; "silent"
    std::uint64_t life = 0;         ///< counts its processes; 0 before the first, and of one in this process
    std::chrono::system_clock::time_point since{};  ///< of the state

    struct Request {
        std::string type;
        std::string uuid;
        std::uint64_t ms = 0;  ///< for how long it has been running
    };
    std::optional<Request> request{};

    std::uint64_t memoryBytes = 0;
    std::uint64_t processorMs = 0;
    std::uint64_t memoryMiB = 0;  ///< the limit; 0: none
    double cpus = 0;              ///< the limit; 0: none
    std::string enforcedBy = "none";
    std::optional<supervisor::DeathRecord> lastDeath{};
};

}  // namespace gateway::ports
