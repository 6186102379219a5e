#include "bayeux/BayeuxServer.h"

#include <algorithm>
#include <exception>
#include <utility>

#include <boost/asio/io_context.hpp>

#include "bayeux/ClientMessage.h"
#include "bayeux/Exchange.h"
#include "bayeux/ServerCore.h"
#include "bayeux/SessionTable.h"
#include "bayeux/channelRules.h"
#include "bayeux/handshake.h"
#include "foundation/log/diagnostic_logger.h"
#include "messages/LocalMessageService.h"

namespace gateway::bayeux {

using connector::MutexLock;

namespace {

constexpr std::uint16_t goingAway = 1001;
constexpr std::uint16_t policyViolation = 1008;
constexpr std::uint16_t tooBig = 1009;

// The message service counts in tens of seconds, and looks at every session.
// Where there is neither a session nor a socket.
constexpr std::chrono::milliseconds idleSweepInterval = std::chrono::seconds(5);

constexpr auto serviceSweepInterval = std::chrono::seconds(1);

using Sessions = std::shared_ptr<SessionTable>;

foundation::log::DiagnosticLogger log() { return foundation::log::DiagnosticLogger("gateway::bayeux"); }

HttpAnswer errorAnswer(int status, std::string_view reason) {
    return {status, Members().add("error", reason).take()};
}

std::string internalError(const ClientMessage& message, const Advice& advice, const char* reason) {
    log().error("A message could not be handled: " + std::string(reason));
    const bool isAdvised = message.channel() == connectChannel || message.channel() == handshakeChannel;
    return failed(message, errorText(500, "internal error"),
                  isAdvised ? advice.retry(std::chrono::seconds(1)) : Members());
}

/// The session of a message, or null when it has none; then the reply is added to the exchange.
std::shared_ptr<BayeuxSession> sessionOf(SessionTable& sessions, const ClientMessage& message,
                                         Exchange& exchange) {
    if (message.channel().empty()) {
        exchange.add(failed(message, errorText(400, "missing channel")));
        return nullptr;
    }
    if (message.channel() == handshakeChannel) {
        exchange.add(answerHandshake(sessions, message, exchange));
        return nullptr;
    }
    auto session = sessions.find(message.clientId());
    if (!session || !session->belongsTo(exchange.peer())) {
        exchange.add(unknownClient(message, sessions.core()->advice));
        return nullptr;
    }
    exchange.trust();
    return session;
}

/// Handles messages from the one at `next` on, each on the strand of its session, one after the other.
void handle(const Sessions& sessions, const std::shared_ptr<Exchange>& exchange, std::size_t next = 0) {
    const auto& messages = exchange->messages();
    for (; next < messages.size(); ++next) {
        const ClientMessage& message = messages[next];
        try {
            const auto session = sessionOf(*sessions, message, *exchange);
            if (session && !session->strand().isCurrent()) {
                const auto goOn = [sessions, exchange, next] { handle(sessions, exchange, next); };
                // The first message at once; later ones would nest as deep as the array is long.
                return next == 0 ? session->strand().dispatch(goOn) : session->strand().post(goOn);
            }
            if (!session) continue;
            const auto goOn = [sessions, exchange, next] { handle(sessions, exchange, next + 1); };
            if (!session->handle(message, *exchange, goOn)) return;
        } catch (const std::exception& error) {
            exchange->add(internalError(message, sessions->core()->advice, error.what()));
        }
    }
    if (const auto socket = exchange->socket()) socket->endExchange();
    exchange->flush();
}

class ServerPost : public PendingPost {
public:
    ServerPost(Sessions sessions, std::shared_ptr<PostExchange> exchange)
        : sessions_(std::move(sessions)), exchange_(std::move(exchange)) {}
    // Only a request that is alone is held, so the session of the first one has to know.
    ~ServerPost() override {
        exchange_->abandon();
        const auto session = itsSession();
        if (!session) return;
        session->strand().post([session, isWritten = isWritten_, exchange = exchange_] {
            session->release(*exchange, isWritten);
        });
    }
    ServerPost(const ServerPost&) = delete;
    ServerPost& operator=(const ServerPost&) = delete;

    bool isTrusted() const override { return exchange_->isTrusted(); }
    void progressed() override {
        if (const auto session = itsSession()) session->noteReading();
    }
    void written() override { isWritten_ = true; }

private:
    std::shared_ptr<BayeuxSession> itsSession() const {
        const auto& messages = exchange_->messages();
        return messages.empty() ? nullptr : sessions_->find(messages.front().clientId());
    }

    const Sessions sessions_;
    const std::shared_ptr<PostExchange> exchange_;
    bool isWritten_ = false;
};

/// The messages in a body. Throws: MalformedArray.
std::vector<ClientMessage> messagesIn(const std::string& body, const Peer& peer,
                                      const SessionTable& sessions) {
    const auto& options = sessions.core()->options;
    if (body.size() > options.unauthenticatedBytes && !peer.isAuthenticated && !sessions.showsSession(body)) {
        throw MalformedArray(413, tooBig,
                             "The body is too large for a client without the token or a session");
    }
    auto messages = readMessages(body, options.depth, options.messagesPerArray,
                                 sessions.maxValues(peer.isAuthenticated, body));
    if (messages.empty()) throw MalformedArray(400, 0, "The array must hold at least one message");
    return messages;
}

}  // namespace

BayeuxServer::BayeuxServer(boost::asio::io_context& context, messages::LocalMessageService& messages,
                           ports::InterpreterPort& port, ServerOptions options)
    : core_(std::make_shared<ServerCore>(context, messages, port, std::move(options))),
      sessions_(std::make_shared<SessionTable>(core_)),
      timer_(context) {
    armTimer();
}

BayeuxServer::~BayeuxServer() { stop(); }

std::unique_ptr<PendingPost> BayeuxServer::post(const std::string& body, const Peer& peer,
                                                std::function<void(HttpAnswer)> done) {
    const auto answerNow = [&](const HttpAnswer& answer) {
        auto exchange = std::make_shared<PostExchange>(std::vector<ClientMessage>(), peer, std::move(done));
        exchange->answer(answer);
        return std::make_unique<ServerPost>(sessions_, std::move(exchange));
    };
    noteUse();
    if (isStopped()) return answerNow(errorAnswer(503, "The server is shutting down"));
    try {
        auto exchange = std::make_shared<PostExchange>(messagesIn(body, peer, *sessions_), peer, done);
        handle(sessions_, exchange);
        return std::make_unique<ServerPost>(sessions_, std::move(exchange));
    } catch (const MalformedArray& error) {
        return answerNow(errorAnswer(error.httpStatus(), error.what()));
    }
}

bool BayeuxServer::showsSession(std::string_view body) const { return sessions_->showsSession(body); }

void BayeuxServer::open(const std::shared_ptr<ClientSocket>& socket) {
    noteUse();
    socket->open(core_);
    {
        MutexLock lock(mutex_);
        if (!isStopped_) return sockets_.push_back(socket);
    }
    socket->close(goingAway);
}

void BayeuxServer::receive(const std::shared_ptr<ClientSocket>& socket, const std::string& text) {
    if (socket->isClosing()) return;
    if (text.size() > socket->maxFrameBytes()) return socket->close(tooBig);
    const auto& options = core_->options;
    try {
        auto messages = readMessages(text, options.depth, options.messagesPerArray,
                                     sessions_->maxValues(socket->isTrusted(), text));
        if (messages.empty()) {
            socket->send({}, true);  // a sign of life
        } else {
            socket->beginExchange();
            handle(sessions_, std::make_shared<SocketExchange>(std::move(messages), socket));
        }
        // Reading what unknown clients send takes time that others need.
        if (!socket->isTrusted()) socket->close(policyViolation);
    } catch (const MalformedArray& error) {
        socket->close(error.closeCode());
    }
}

// Destroying the timer cancels it, and then it does not touch this. While one waits, this is not unused.
void BayeuxServer::armTimer() {
    const auto interval = core_->options.sweepInterval;
    MutexLock lock(mutex_);
    if (isStopped_) return;
    timer_.expires_after(isIdle_ ? std::max(interval, idleSweepInterval) : interval);
    timer_.async_wait([this, core = core_](const boost::system::error_code& error) {
        if (error) return;
        try {
            sweep();
        } catch (const std::exception& failure) {
            log().error("Sweeping the sessions failed: " + std::string(failure.what()));
        }
        isIdle_ = sessions_->size() == 0 && openSockets().empty();
        armTimer();
    });
}

void BayeuxServer::noteUse() {
    if (isIdle_.exchange(false)) armTimer();
}

void BayeuxServer::sweep() {
    const auto now = core_->options.now();
    // A handler in the process that blocks in a turn holds up nobody for longer than this.
    core_->turns.wakeAll();
    for (const auto& session : sessions_->due(now)) session->wake();
    for (const auto& socket : openSockets()) socket->sweep(now);
    if (now < nextServiceSweep_.load()) return;
    nextServiceSweep_ = now + serviceSweepInterval;
    core_->messages.sweep();
}

std::size_t BayeuxServer::sessions() const { return sessions_->size(); }

void BayeuxServer::stop() {
    {
        MutexLock lock(mutex_);
        if (std::exchange(isStopped_, true)) return;
        timer_.cancel();
    }
    const auto sessions = sessions_->close();
    // The sockets are closed after the last answer.
    const auto left = std::make_shared<std::atomic<std::size_t>>(sessions.size() + 1);
    const auto closeAfterLast = [sockets = openSockets(), left] {
        if (--*left > 0) return;
        for (const auto& socket : sockets) socket->close(goingAway);
    };
    for (const auto& session : sessions) {
        session->strand().post([session, closeAfterLast] {
            session->shutDown();
            closeAfterLast();
        });
    }
    closeAfterLast();
}

bool BayeuxServer::isStopped() {
    MutexLock lock(mutex_);
    return isStopped_;
}

BayeuxServer::Sockets BayeuxServer::openSockets() {
    Sockets sockets;  // with those that are closed, so that none is destroyed under the lock
    MutexLock lock(mutex_);
    std::erase_if(sockets_, [&](const auto& weak) {
        auto socket = weak.lock();
        if (!socket) return true;
        sockets.push_back(std::move(socket));
        return sockets.back()->isClosed();
    });
    return sockets;
}

}  // namespace gateway::bayeux
