#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "jupyter/Kernel.h"
#include "jupyter/KernelClient.h"
#include "jupyter/KernelSocket.h"
#include "jupyter/SessionInterpreter.h"
#include "jupyter/StrandExecutor.h"
#include "messages/LocalMessageService.h"
#include "ports/InterpreterPort.h"

namespace gateway::jupyter {

/// The kernel of one interpreter, and the front ends that share it.
///
///     empty -- join --> kernel made -- nobody is here or comes back, and nothing runs --> empty
///       '---------------- stop -------------------------------------------------------> stopped
///
/// What goes out on iopub goes to all, the rest to the one that its route names. Who is away is known for 10
/// minutes by the session that it has named, and gets then what has come meanwhile.
///
/// Threads: `post` and the counts any; the rest on the executor.
/// Owns: borrows the port, which must outlive it unless it is stopped or empty.
class KernelRoom : public ::jupyter::Outlet, public std::enable_shared_from_this<KernelRoom> {
public:
    using Answered = std::function<void(int status, const std::string& reason)>;
    using SocketPtr = std::shared_ptr<KernelSocket>;

    struct Options {
        std::shared_ptr<messages::LocalMessageService> messages;
        std::size_t frameBytes;
        std::chrono::milliseconds ownerWait;  ///< as in GatewayOptions
    };

    KernelRoom(boost::asio::io_context& context, ports::InterpreterPort& port, Options options);
    ~KernelRoom() override;

    /// Has it done on the executor.
    void post(std::function<void(KernelRoom&)> action);
    std::size_t frameBytes() const { return options_.frameBytes; }
    std::size_t connections() const { return connections_; }
    /// As that of the kernel; "idle" without one.
    const char* executionState() const { return state_; }
    std::chrono::system_clock::time_point lastActivity() const { return lastActivity_; }

    void join(const SocketPtr& socket);
    void leave(const KernelSocket& socket);
    void receive(const KernelSocket& socket, ::jupyter::Message message);
    /// The socket takes more.
    void goOn(const KernelSocket& socket);

    /// Also when there is no kernel.
    void interrupt();
    void restart(Answered answered);
    /// Closes the sockets with 1001 and ends the kernel.
    void stop();

    void send(::jupyter::Message message) override;
    bool hasRoom() const override;

private:
    void begin();
    void end();
    void sweep();
    void armSweep();
    void forgetOldest();
    void watchOwner();
    void noteOwner(const ::jupyter::Message& message);
    KernelClient* clientOf(const KernelSocket& socket);

    StrandExecutor executor_;
    ports::InterpreterPort& port_;
    const Options options_;
    std::atomic<std::size_t> connections_{0};
    std::atomic<const char*> state_{"idle"};
    std::atomic<std::chrono::system_clock::time_point> lastActivity_{};

    std::map<std::string, KernelClient> clients_;  // by their sessions
    std::string parent_;                           // of what was published last
    std::string owner_;                            // the "session" of whose cell that was
    bool isWatching_ = false;                      // for the end of somebody's patience
    KernelClient::Clock::time_point left_{};       // when the last socket was closed
    bool mayRestart_ = false;                      // whoever is being obeyed
    bool isSweeping_ = false;
    bool isStopped_ = false;
    std::unique_ptr<::jupyter::SessionInterpreter> interpreter_;
    std::unique_ptr<::jupyter::Kernel> kernel_;  // null while the room is empty
};

}  // namespace gateway::jupyter
