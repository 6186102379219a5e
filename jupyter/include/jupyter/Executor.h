#pragma once

#include <chrono>
#include <functional>

namespace jupyter {

/// Where a kernel lives: it runs one task at a time, in the order of `post`, on whatever thread it likes.
///
/// Threads: every operation from any thread, also from within a task.
class Executor {
public:
    virtual ~Executor() = default;

    /// Runs the task later, never within this call.  Blocks: never.
    virtual void post(std::function<void()> task) = 0;
    /// The same, when the time is over.
    virtual void postAfter(std::chrono::milliseconds time, std::function<void()> task) = 0;
};

}  // namespace jupyter
