#pragma once

#include <functional>
#include <memory>

#include "zvm/identities.h"

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

namespace cmddistributor {
class CmdDistributor;
}

namespace zvm {

/// The interpreter's virtual machine.
///
/// Threads: every operation from any thread; none blocks on running code for long.
class ZVM {
public:
    virtual ~ZVM() = default;

    virtual ZvmID id() const = 0;

    /// Whether the interpreter takes requests. Once false, it stays false.
    virtual bool isAvailable() const = 0;

    /// Interrupts the code that is running, or the prompt at which it waits. An idle interpreter ignores it.
    /// Blocks: at a prompt until the code has ended or waits again, so that the next request finds it so;
    /// half a second at most.
    virtual void interrupt() = 0;

    /// Interrupts on behalf of one request: running code is interrupted if it belongs to the request, and a
    /// request that still waits in the queue is taken out and fails with EXECUTION_CANCELLED. Code of other
    /// requests goes on.
    virtual void interrupt(const foundation::msg_svc::exchange::IDType& request) = 0;

    /// Takes the requests. Never null.
    virtual std::shared_ptr<cmddistributor::CmdDistributor> getCmdDistributor() = 0;
};

/// The process's session with its interpreters.
class Session {
public:
    virtual ~Session() = default;
    /// Whether the process still works, that is, has not begun to shut down.
    virtual bool isActive() const = 0;
};

class Factory {
public:
    /// The current local interpreter, or null when none is running.  Threads: any.
    static std::shared_ptr<ZVM> getCurrentLocalZVM();
};

class ProcessSession {
public:
    /// The process's session, or null when no environment is installed.  Threads: any.
    static std::shared_ptr<Session> session();
};

}  // namespace zvm
