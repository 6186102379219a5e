#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/steady_timer.hpp>

#include "bayeux/ClientSocket.h"
#include "bayeux/ServerOptions.h"
#include "bayeux/transport.h"
#include "connector/ThreadSafety.h"

namespace messages {
class LocalMessageService;
}
namespace gateway::ports {
class InterpreterPort;
}

namespace gateway::bayeux {

class SessionTable;

/// The Bayeux protocol over the message service: handshakes, connects, subscriptions, publishes and remote
/// calls, with the acknowledge extension; it knows nothing of HTTP, and of sockets what ClientSocket says.
///
/// Subscribers and watchers in the process run on threads of the io_context; one that blocks holds up the
/// session that it is called for, its socket, and a thread.
///
/// Threads: every operation from any thread. All work on one session runs on one strand of the io_context,
/// one piece after the other, so that what a session sends keeps its order and no lock is held while other
/// code runs.  Locks: mutex_, a leaf.  Owns: borrows `context`, `messages` and `port`. It is destroyed
/// when no thread runs the context any more, or when it is stopped and unused; and the context when nobody
/// publishes and the port is stopped.
class BayeuxServer {
public:
    BayeuxServer(boost::asio::io_context& context, messages::LocalMessageService& messages,
                 ports::InterpreterPort& port, ServerOptions options);
    /// Stops.
    ~BayeuxServer();
    BayeuxServer(const BayeuxServer&) = delete;
    BayeuxServer& operator=(const BayeuxServer&) = delete;

    /// Takes the body of one POST. `done` is called once, perhaps before the operation returns, unless the
    /// result is destroyed first.
    std::unique_ptr<PendingPost> post(const std::string& body, const Peer& peer,
                                      std::function<void(HttpAnswer)> done);

    /// Whether the id of a session is seen in a body, or in its beginning.
    bool showsSession(std::string_view body) const;

    /// Takes over a WebSocket.
    void open(const std::shared_ptr<ClientSocket>& socket) CONNECTOR_EXCLUDES(mutex_);
    /// Takes one text frame. Closes the socket after the first that shows neither the token nor a session.
    /// Threads: one call at a time for each socket.
    void receive(const std::shared_ptr<ClientSocket>& socket, const std::string& text);

    /// Does what is due by the clock of the options and, once a second, `sweep` of the message service. A
    /// timer calls it every `sweepInterval`.
    void sweep() CONNECTOR_EXCLUDES(mutex_);

    /// How many sessions there are.
    std::size_t sessions() const;

    /// Whether no session, socket or handler is left that could use the message service or the port. After
    /// `stop` none comes any more.
    bool isUnused() const { return core_.use_count() == ownUses && sessions_.use_count() == 1; }

    /// Ends every session: held connects are answered, sockets closed with 1001. That needs the context to
    /// run on for a moment.
    void stop() CONNECTOR_EXCLUDES(mutex_);

private:
    static constexpr long ownUses = 2;  // of the core: by this, and by the table of sessions
    using Sockets = std::vector<std::shared_ptr<ClientSocket>>;

    void armTimer() CONNECTOR_EXCLUDES(mutex_);
    void noteUse() CONNECTOR_EXCLUDES(mutex_);
    bool isStopped() CONNECTOR_EXCLUDES(mutex_);
    Sockets openSockets() CONNECTOR_EXCLUDES(mutex_);

    const std::shared_ptr<ServerCore> core_;
    const std::shared_ptr<SessionTable> sessions_;
    std::atomic<std::chrono::steady_clock::time_point> nextServiceSweep_{};
    std::atomic<bool> isIdle_{false};  // sweeps are rare

    connector::Mutex mutex_;
    bool isStopped_ CONNECTOR_GUARDED_BY(mutex_) = false;
    std::vector<std::weak_ptr<ClientSocket>> sockets_ CONNECTOR_GUARDED_BY(mutex_);
    boost::asio::steady_timer timer_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace gateway::bayeux
