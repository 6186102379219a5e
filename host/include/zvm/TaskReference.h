#pragma once

#include <functional>

namespace zvm {

/// A hold on one request that was handed to a command distributor.
///
/// Threads: every operation from any thread.
class TaskReference {
public:
    enum class CancelStatus {
        Cancelled,       ///< it had not begun and never will
        AlreadyStarted,  ///< it is running
        NotFound,        ///< it has ended, or never was queued
    };

    virtual ~TaskReference() = default;

    /// Lets the request run. Until then it waits, whatever the interpreter does.
    virtual void setReadyToExecute() = 0;

    /// Calls `continuation` once, when the request has ended in whatever way; at once if it has ended
    /// already. `continuation` runs on the thread that ended the request, with no lock held, and must not
    /// throw.
    virtual void addContinuation(std::function<void()> continuation) = 0;

    /// Takes the request back if it has not begun. `interruptIfRunning` also interrupts it if it has.
    virtual CancelStatus cancel(bool interruptIfRunning) = 0;
};

}  // namespace zvm
