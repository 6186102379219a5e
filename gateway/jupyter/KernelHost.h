#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>

#include "connector/identifiers.h"

namespace gateway::jupyter {

/// The kernel that notebook clients see in an interpreter.
///
/// Threads: every operation from any thread.
class KernelHost {
public:
    /// A UUID, which is that of the interpreter as long as there is one.
    const std::string& id() const { return id_; }

    /// A client of these paths has had the interpreter made, and ends it.
    void own() { isOwn_ = true; }
    bool isOwn() const { return isOwn_; }

    std::size_t connections() const { return connections_; }
    bool isBusy() const { return isBusy_; }
    std::chrono::system_clock::time_point lastActivity() const { return lastActivity_; }

private:
    const std::string id_ = connector::randomUuid();
    std::atomic<bool> isOwn_{false};
    std::atomic<std::size_t> connections_{0};
    std::atomic<bool> isBusy_{false};
    std::atomic<std::chrono::system_clock::time_point> lastActivity_{};
};

}  // namespace gateway::jupyter
