#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "bayeux/Calls.h"
#include "bayeux/ClientMessage.h"
#include "bayeux/ClientSocket.h"
#include "bayeux/Evaluations.h"
#include "bayeux/Outbox.h"
#include "bayeux/RateLimit.h"
#include "bayeux/Strand.h"
#include "bayeux/Subscriptions.h"
#include "bayeux/replies.h"
#include "messages/ClientSession.h"

namespace gateway::bayeux {

class Exchange;
struct ServerCore;

/// One client, from its handshake on.
///
///     connect held <--- connect / answer, client gone, socket closed ---> waiting
///     any --- disconnect, overflow of the queue, end of the server ------> ended
///     waiting --- `maxInterval` without activity of the client ----------> ended
///
/// Deliveries go out with answers to connects; when the client talks through a WebSocket and does not
/// acknowledge, they are sent as they come, and connects are signs of life only.
///
/// Threads: all work is done on the strand. It is the lock of the session, with two differences: what is sent
/// keeps the order of the work, and other code (handlers in the process, sockets) may be called from it,
/// because it stops nobody but this session.
class BayeuxSession : public SocketUser, public std::enable_shared_from_this<BayeuxSession> {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Ended = std::function<void(const BayeuxSession&)>;

    /// For SessionTable. `ended` is called once, on the strand.
    BayeuxSession(std::shared_ptr<ServerCore> core, const Peer& peer,
                  const std::shared_ptr<messages::ClientSession>& client, bool isAcknowledged, Ended ended);

    /// These are for any thread. Whoever knows the id is the client: it belongs in no log.
    const std::string& id() const { return client_->id(); }
    const std::string& peerAddress() const { return peer_.address; }
    /// Whether messages of the peer may be of this client: it shows the token, or comes from where the
    /// handshake came from. A client may show the token in its handshake alone.
    bool belongsTo(const Peer& peer) const;
    const Strand& strand() const { return strand_; }
    void wake() override;
    void socketClosed(const std::shared_ptr<ClientSocket>& socket) override;
    void noteReading() override { client_->noteReading(); }
    bool isDue(Time now) const { return due_.load() <= now; }

    /// These are for the strand. It begins to deliver, through `socket`, which may be null.
    void start(const std::shared_ptr<ClientSocket>& socket);
    /// Adds the reply to the exchange; or else returns false, and `goOn` is called, on the strand, when that
    /// has been done.
    bool handle(const ClientMessage& message, Exchange& exchange, const std::function<void()>& goOn);
    /// The exchange has come to its end: its answer is written, or its client has gone.
    void release(const Exchange& exchange, bool isWritten);
    /// Ends because the server does.
    void shutDown();

private:
    struct HeldConnect {
        std::shared_ptr<Exchange> exchange;
        ClientMessage message;
        Time until;
        bool isThrottled;  // there were too many connects lately
    };

    void bind(const std::shared_ptr<ClientSocket>& socket);
    /// The reply to a message for another life of the interpreter; empty for the others.
    std::string refusalByLife(const ClientMessage& message) const;
    std::string answer(const ClientMessage& message, Exchange& exchange);
    void connect(const ClientMessage& message, Exchange& exchange);
    std::string publish(const ClientMessage& message);
    void stream(const ClientMessage& message, Exchange& exchange, const std::function<void()>& goOn);
    std::string disconnect(const ClientMessage& message);

    void work();
    bool usesSocket() const { return socket_ && !outbox_.isAcknowledged(); }
    void deliver();
    std::shared_ptr<Exchange> answerHeld();
    std::string connectReply(const ClientMessage& message);
    void expire();

    /// Ends; a held connect gets a reply with this advice, and an error unless that is empty.
    void end(const std::string& error, const Members& advice);
    void noteActivity();
    void updateDue();
    Time now() const;

    // Fixed after construction.
    const std::shared_ptr<ServerCore> core_;
    const Peer peer_;  // of the handshake
    const std::shared_ptr<messages::ClientSession> client_;
    const Strand strand_;
    const Ended ended_;

    std::atomic<bool> isWoken_{false};
    std::atomic<Time> due_;

    // On the strand.
    Outbox outbox_;
    Subscriptions subscriptions_;
    Evaluations evaluations_;
    Calls calls_;
    RateLimit connects_;
    std::shared_ptr<ClientSocket> socket_;
    std::optional<HeldConnect> held_;
    std::shared_ptr<Exchange> beingWritten_;  // the POST whose connect was answered last
    Time lastActivity_;                       // of the client
    bool isEnded_ = false;
};

}  // namespace gateway::bayeux
