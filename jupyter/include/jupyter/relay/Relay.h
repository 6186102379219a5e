#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

#include "jupyter/Executor.h"
#include "jupyter/Kernel.h"
#include "jupyter/Message.h"
#include "jupyter/relay/ServerSocket.h"
#include "jupyter/zmq/SocketThread.h"

namespace jupyter {

class Lifetime;
class Publisher;
class RunningJob;
class StopOnError;
struct ErrorText;
struct Request;

struct RelayOptions {
    /// Restarts the kernel of the server, or lets go of it; then calls `done`, on any thread, with the reason
    /// why it could not, or an empty text, while the relay exists.
    std::function<void(bool isRestart, std::function<void(std::string problem)> done)> release;
    /// The relay comes to its end: a client has shut it down, and has the reply; or there is a reason. What
    /// waits fails after that: the relay must not be destroyed within it.
    std::function<void(std::string reason)> ended;
};

/// A kernel that is somewhere else: copies messages between front ends and the kernel of a server, as they
/// are.
///
/// Front ends do not see the server come and go. While it is away, the cell that runs there has a line about
/// it on its standard error, and requests wait. What was on its way when the connection broke may or may not
/// have arrived: such requests fail, and are not sent twice; a cell among them aborts the waiting cells of
/// its front end, as any error does. If it runs after all and asks for input, that is at its end. What
/// had arrived before goes on, but what the server has sent may not have come: requests whose replies were
/// lost fail when it is back. When it has gone for good all fail.
///
/// What the server would not read is refused here, since it would close the connection for all clients.
///
/// Threads: made, used and destroyed on the executor.  Locks: none.
class Relay : public SocketUser, private ServerSocketListener {
public:
    /// So many requests may wait for their replies.
    static constexpr std::size_t mostRequests = 4096;
    /// Of a message, in the encoding V1: what servers take unless they are set up otherwise.
    static constexpr std::size_t mostBytes = std::size_t{16} << 20;

    /// Borrows `executor` and `outlet`, which must outlive it.
    Relay(Executor& executor, Outlet& outlet, std::unique_ptr<ServerSocket> server, RelayOptions options);
    ~Relay() override;
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    void receive(Message message) override;
    void subscribed() override;
    void roomIsBack() override;
    /// SIGINT interrupts the kernel, SIGTERM ends the relay.
    void raised(int signal) override;
    void failed(const std::string& reason) override { end(reason); }

private:
    void opened() override;
    void received(std::string frame) override;
    void lost(std::string reason, std::uint64_t confirmed, std::uint64_t written) override;
    void ended(std::string reason) override;

    using RequestPtr = std::shared_ptr<const Request>;

    void post(std::function<void()> task);
    void pass(const RequestPtr& request);
    /// Nothing of it has gone to the server.
    void refuse(const RequestPtr& request, const std::string& reason);
    void forget(std::uint64_t number);
    void take(const std::string& frame);
    void lose(const std::string& reason, std::uint64_t confirmed, std::uint64_t written);
    void end(const std::string& reason);
    void askWhatRuns();
    void noteState(std::string_view parent, std::string_view state);
    void failLost();
    /// Takes the cells of these sessions out that were sent after number `written`, with an answer; returns
    /// their numbers.
    std::set<std::uint64_t> abortCells(std::uint64_t written, const std::set<std::string>& sessions);
    void release(const RequestPtr& request);
    void fail(const RequestPtr& request, const ErrorText& error);
    void interrupt();
    void endInput(const Message& question);
    /// A message of its own; false when too much waits.
    bool send(const Message& message);
    /// On the standard error of the cell that runs; false where none does.
    bool tell(const std::string& line);

    Executor& executor_;
    const RelayOptions options_;
    const std::unique_ptr<Publisher> clients_;
    const std::unique_ptr<StopOnError> stop_;
    const std::unique_ptr<RunningJob> running_;
    const std::unique_ptr<Lifetime> lifetime_;

    std::uint64_t lastNumber_ = 0;
    std::uint64_t doubted_ = 0;  // replies to what was sent up to this number may be lost; 0: none are
    std::map<std::uint64_t, RequestPtr> requests_;            // by the numbers that they were sent with
    std::unordered_map<std::string, std::uint64_t> numbers_;  // by the ids of the messages
    std::string count_ = "0";                                 // of the cell that has begun last
    Route asked_;                                             // the client that was asked for input last
    std::string absence_;                                     // why the server is away, if it is
    bool isTold_ = false;                                     // a cell has a line about that
    bool isRoomWanted_ = false;                               // before more is read
    bool isReleasing_ = false;
    bool isOver_ = false;

    const std::unique_ptr<ServerSocket> server_;  // last: it calls the others until its end
};

}  // namespace jupyter
