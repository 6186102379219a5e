#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "connector/common/ContextState.h"

namespace standalone {

/// A request that the interpreter runs. Valid during the call that tells of it.
struct RunningCode {
    const connector::common::ContextState* context;  ///< null where the request has none
    std::u16string_view code;  ///< of an evaluation or a call, as a user would write it; its beginning
    std::chrono::steady_clock::time_point since;
};

/// Is told what a host does, so that something is known of it when its process has died.
///
/// No operation may throw, wait for anybody or use the host.
class HostObserver {
public:
    virtual ~HostObserver() = default;

    /// What runs now: the request that began last, or null when none runs any more.
    /// Threads: the interpreter thread with the interpreter's lock.
    virtual void runs(const RunningCode* innermost) = 0;
    /// The interpreter is "busy", "idle", or waits for "input".  Threads: as `runs`.
    virtual void isIn(std::string_view state) = 0;
    /// Python code has printed this.  Threads: those that hold the interpreter's lock.
    virtual void printed(std::u16string_view text) = 0;
    /// Native code or a child process has written this.  Threads: any, one at a time.
    virtual void written(std::string_view bytes) = 0;
};

}  // namespace standalone
