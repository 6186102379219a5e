#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "bayeux/BayeuxServer.h"
#include "bayeux/Calls.h"
#include "bayeux/Outbox.h"
#include "bayeux/RateLimit.h"
#include "bayeux/Request.h"
#include "bayeux/Strand.h"
#include "bayeux/Subscriptions.h"
#include "connector/common/ClientRequests.h"
#include "messages/ClientSession.h"

namespace gateway::bayeux {

class Advice;
class Connection;
class Core;
class Exchange;

/// One client, from its handshake on.
///
///     connect held <--- connect / answer, client gone, socket closed ---> waiting
///     any --- disconnect, overflow of the queue, end of the server ------> ended
///     waiting --- `maxInterval` without a sign of the client ------------> ended
///
/// Deliveries go out with answers to connects; when the client talks through a WebSocket and does not
/// acknowledge, they are sent as they come, and connects are signs of life only.
///
/// Threads: all work is done on the strand. It is the lock of the session, with two differences: what is sent
/// keeps the order of the work, and foreign code (handlers in the process, sockets) may be called from it,
/// because it stops nobody but this session.
class Session : public std::enable_shared_from_this<Session> {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// A new session in the table of `core`, or null when there is no room. It delivers through `socket`,
    /// which may be null.  Threads: any.
    static std::shared_ptr<Session> open(const std::shared_ptr<Core>& core, const Peer& peer,
                                         bool isAcknowledged, const std::shared_ptr<Connection>& socket);
    /// For `open`.
    Session(const std::shared_ptr<Core>& core, const Peer& peer,
            const std::shared_ptr<messages::ClientSession>& client, bool isAcknowledged);

    /// These are for any thread. Whoever knows the id is the client: it belongs in no log.
    const std::string& id() const { return client_->id(); }
    const std::string& peerAddress() const { return peer_.address; }
    /// Whether messages of the peer may be of this client: it shows the token, or comes from where the
    /// handshake came from. A client may show the token in its handshake alone.
    bool belongsTo(const Peer& peer) const;
    const Strand& strand() const { return strand_; }
    /// Something may have to be sent, or be due. Many calls make one turn of work.
    void wake();
    bool isDue(Time now) const { return due_.load() <= now; }

    /// These are for the strand. Replies are added to the exchange.
    void handle(const Request& request, Exchange& exchange);
    /// The exchange has come to its end: its answer is written, or its client has gone.
    void release(const Exchange& exchange, bool isWritten);
    void loseSocket(const std::shared_ptr<Connection>& socket);
    /// Ends because the server does.
    void shutDown();

private:
    struct Hold {
        std::shared_ptr<Exchange> exchange;
        Request request;
        Time until;
        bool isThrottled;  // there were too many connects lately
    };

    void start(const std::shared_ptr<Connection>& socket);
    void bind(const std::shared_ptr<Connection>& socket);
    std::string answer(const Request& request, Exchange& exchange);
    void connect(const Request& request, Exchange& exchange);
    std::string disconnect(const Request& request);

    void work();
    bool pushes() const { return socket_ && !outbox_.isAcknowledged(); }
    void push();
    std::shared_ptr<Exchange> answerHeld();
    std::string connectReply(const Request& request);
    void expire();

    /// Ends; a held connect gets a reply with this advice, and an error unless that is empty.
    void end(const std::string& error, const std::string& advice);
    void noteSign();
    void updateDue();
    Time now() const;

    // Fixed after construction.
    const std::shared_ptr<Core> core_;
    const Peer peer_;  // of the handshake
    const std::shared_ptr<messages::ClientSession> client_;
    const Strand strand_;

    std::atomic<bool> isWoken_{false};
    std::atomic<Time> due_;

    // On the strand.
    Outbox outbox_;
    Subscriptions subscriptions_;
    const std::shared_ptr<connector::common::ClientRequests> evaluations_;
    Calls calls_;
    RateLimit connects_;
    std::shared_ptr<Connection> socket_;
    std::optional<Hold> hold_;
    std::shared_ptr<Exchange> beingWritten_;  // the POST whose connect was answered last
    Time lastSign_;                           // of the client's life
    bool isEnded_ = false;
};

/// The reply to a message of a client that has no session.  Threads: any.
std::string unknownClient(const Request& request, const Advice& advice);

}  // namespace gateway::bayeux
