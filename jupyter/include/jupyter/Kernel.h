#pragma once

#include <functional>
#include <memory>
#include <string>

#include "jupyter/Executor.h"
#include "jupyter/Interpreter.h"
#include "jupyter/Message.h"

namespace jupyter {

/// The way from a kernel to its clients. A transport derives from it.
///
/// Threads: called on the kernel's executor.
class Outlet {
public:
    virtual ~Outlet() = default;
    /// On iopub to all clients, else to the one that `message.route` names; dropped where that is gone.
    /// Blocks: never.
    virtual void send(Message message) = 0;
    /// False while so much waits to be sent on iopub that more should not be taken from the interpreter.
    virtual bool hasRoom() const { return true; }
};

struct KernelOptions {
    /// Whether more than one front end may use the interpreter, and others that are none: `exit()` and a
    /// shutdown leave it alone then.
    bool isShared = false;
    /// Called on the executor when a client asks for the end of the kernel, after the reply was sent; the
    /// kernel must not be destroyed within it.
    std::function<void(bool isRestart)> shutDown;
    /// The file of the cells that have run, which other kernels may use at the same time; empty: there is
    /// none.
    std::string history{};
};

/// A kernel of the Jupyter messaging protocol 5.5 for one interpreter. It knows channels and messages, but
/// neither sockets nor threads.
///
/// Execute requests run one after the other, in their order; what can be answered beside running code is:
/// kernel_info, complete, inspect, is_complete, history, comm_info, and interrupts. Every request is framed
/// by the statuses busy and idle, its reply comes between them, and all that its code prints and shows before
/// its reply.
///
/// Threads: made, used and destroyed on the executor; what it has asked the interpreter for may be answered
/// after its end.  Locks: none.
class Kernel {
public:
    /// Borrows all three, which must outlive it.
    Kernel(Executor& executor, Interpreter& interpreter, Outlet& outlet, KernelOptions options);
    ~Kernel();
    Kernel(const Kernel&) = delete;
    Kernel& operator=(const Kernel&) = delete;

    /// A message of a client, on shell, control or stdin. One whose header is no header is dropped, with a
    /// line in the log.
    void receive(Message message);
    /// A client has subscribed to iopub: it is welcomed.
    void welcome();
    /// As an interrupt_request does, for a signal.
    void interrupt();
    /// As a shutdown_request with "restart" does. `answered` gets status 200 when the interpreter is new, or
    /// an HTTP status and the reason why it is not. Not after the end of the kernel.
    void restart(std::function<void(int status, std::string reason)> answered);
    /// Room has come back in the outlet, or its clients go on reading: code that waits for them goes on
    /// waiting then.
    void resume();

    /// "busy", "idle", "restarting" or "dead", and when the last message came: seconds since 1970.
    const char* executionState() const;
    double lastActivity() const;

private:
    class Core;
    const std::unique_ptr<Core> core_;
};

}  // namespace jupyter
