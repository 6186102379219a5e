#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "jupyter/ConnectionFile.h"
#include "jupyter/Executor.h"
#include "jupyter/Kernel.h"
#include "jupyter/Message.h"

namespace jupyter {

/// Whom the messages of a SocketThread are for.
///
/// Threads: made, used and destroyed on that thread. What it throws is logged.
class SocketUser {
public:
    virtual ~SocketUser() = default;
    virtual void receive(Message message) = 0;
    /// One client, or some, have subscribed to iopub.
    virtual void subscribed() = 0;
    /// The outlet has room again.
    virtual void roomIsBack() = 0;
    /// Called again and again while it has none: a client that may still read is waited for.
    virtual void waitsForRoom() {}
    /// For SocketThread::raise.
    virtual void raised(int signal) = 0;
    /// The sockets can be used no more: nothing comes from them, and the process is to end.
    virtual void failed(const std::string& reason) = 0;
};

/// The five sockets of a kernel, and the thread that owns them and runs what is posted.
///
///     made: the sockets are bound -- start --> messages are received -- stop --> the user is destroyed; what
///     is left is sent, in half a second, and the sockets are closed, in one more
///
/// What comes on shell before anybody has subscribed to iopub is handed on when somebody has, after half a
/// second at the latest.
///
/// The heartbeat is echoed there as well: nothing that runs on it may wait.
///
/// When the sockets fail, the user is told, and what is posted runs until `stop`.
///
/// What is sent on iopub is lost for nobody who reads, but for text: IopubQueue says when.
///
/// Threads: every operation from any thread, but for those of Outlet; start and stop on one.  Locks: that of
/// its tasks, a leaf.
class SocketThread : public Executor, public Outlet {
public:
    /// Binds the sockets; a port that is 0 becomes the one that is bound.
    /// Throws: std::runtime_error, which names the address, when one cannot be bound; std::invalid_argument.
    explicit SocketThread(ConnectionFile file);
    /// Stops, and waits until the sockets are closed.
    ~SocketThread() override;
    SocketThread(const SocketThread&) = delete;
    SocketThread& operator=(const SocketThread&) = delete;

    /// With the ports that are bound.
    const ConnectionFile& file() const;

    /// Starts the thread; `make` runs on it. Once.  Throws: what `make` throws.
    void start(const std::function<std::unique_ptr<SocketUser>()>& make);
    /// What is posted from now on is dropped.  Blocks: until the user is destroyed; not on the thread itself.
    void stop();

    void post(std::function<void()> task) override;
    void postAfter(std::chrono::milliseconds time, std::function<void()> task) override;
    /// Has the user told of a signal, of 0 to 63. Of equal ones that come close together it is told once.
    /// Threads: any; in signal handlers, too.
    void raise(int signal);

    void send(Message message) override;
    bool hasRoom() const override;

private:
    class Impl;
    const std::unique_ptr<Impl> impl_;
};

}  // namespace jupyter
