#pragma once

namespace jupyter {
class SocketThread;
}

namespace app {

/// Passes the signals of a notebook kernel on to its socket thread, while it exists: SIGTERM and, with an
/// interpreter in the process, SIGINT from outside, once that has its own handler.
///
/// Forked children keep to themselves what is sent to them.
///
/// One at a time in the process.  Threads: made and destroyed on one.
class KernelSignals {
public:
    /// `sockets` must outlive it.
    explicit KernelSignals(jupyter::SocketThread& sockets);
    ~KernelSignals();
    KernelSignals(const KernelSignals&) = delete;
    KernelSignals& operator=(const KernelSignals&) = delete;

    /// Call it once the interpreter is there, even where SIGINT was ignored before.
    void passInterrupts();
};

}  // namespace app
