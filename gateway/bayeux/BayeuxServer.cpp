#include "bayeux/BayeuxServer.h"

#include <atomic>
#include <exception>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "bayeux/Connection.h"
#include "bayeux/Core.h"
#include "bayeux/Exchange.h"
#include "bayeux/Request.h"
#include "bayeux/Session.h"
#include "connector/ThreadSafety.h"
#include "connector/json/escape.h"
#include "foundation/log/diagnostic_logger.h"
#include "messages/LocalMessageService.h"

namespace gateway::bayeux {

using connector::MutexLock;

namespace {

constexpr std::uint16_t goingAway = 1001;

// The message service counts in tens of seconds, and looks at every session.
constexpr auto longSweepInterval = std::chrono::seconds(1);

HttpAnswer errorAnswer(int status, std::string_view reason) {
    return {status, R"({"error":)" + connector::json::quoted(reason) + "}"};
}

class ServerSocket : public Socket {
public:
    explicit ServerSocket(std::shared_ptr<Core> core, std::shared_ptr<Connection> connection)
        : core_(std::move(core)), connection_(std::move(connection)) {
        core_->connections.add(connection_);
    }
    ~ServerSocket() override {
        core_->connections.remove(*connection_);
        connection_->closed();
    }
    ServerSocket(const ServerSocket&) = delete;
    ServerSocket& operator=(const ServerSocket&) = delete;

    void receive(std::string text) override { connection_->receive(text); }
    void endReadTurn() override { connection_->endReadTurn(); }
    void drained() override { connection_->drained(); }
    std::size_t maxFrameBytes() const override { return connection_->maxFrameBytes(); }
    bool isTrusted() const override { return connection_->isTrusted(); }

private:
    const std::shared_ptr<Core> core_;
    const std::shared_ptr<Connection> connection_;
};

class ServerPost : public PendingPost {
public:
    explicit ServerPost(std::shared_ptr<PostExchange> exchange) : exchange_(std::move(exchange)) {}
    ~ServerPost() override { exchange_->end(isWritten_); }
    ServerPost(const ServerPost&) = delete;
    ServerPost& operator=(const ServerPost&) = delete;

    bool isTrusted() const override { return exchange_->isTrusted(); }
    void written() override { isWritten_ = true; }

private:
    const std::shared_ptr<PostExchange> exchange_;
    bool isWritten_ = false;
};

/// One that was answered at once.
class AnsweredPost : public PendingPost {
public:
    explicit AnsweredPost(const Peer& peer) : isTrusted_(peer.isAuthenticated) {}

    bool isTrusted() const override { return isTrusted_; }
    void written() override {}

private:
    const bool isTrusted_;
};

}  // namespace

/// Locks: mutex_, a leaf.
class BayeuxServer::Impl : public std::enable_shared_from_this<Impl> {
public:
    Impl(boost::asio::io_context& context, messages::LocalMessageService& messages,
         dispatch::RequestDispatcher& dispatcher, ServerOptions options)
        : core(std::make_shared<Core>(context, messages, dispatcher, std::move(options))), timer_(context) {}

    /// Lets the timer sweep, again and again.
    void armTimer() EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        if (isStopped_) return;
        timer_.expires_after(core->options.sweepInterval);
        timer_.async_wait([weak = weak_from_this()](const boost::system::error_code& error) {
            const auto self = weak.lock();
            if (error || !self) return;
            self->sweepAndLog();
            self->armTimer();
        });
    }

    void sweepAndLog() {
        try {
            sweep();
        } catch (const std::exception& failure) {
            foundation::log::DiagnosticLogger("gateway::bayeux")
                .error("Looking after the sessions failed: " + std::string(failure.what()));
        }
    }

    void sweep() {
        const auto now = core->options.now();
        for (const auto& session : core->sessions.due(now)) session->wake();
        core->connections.sweep(now);
        if (now < nextLongSweep_.load()) return;
        nextLongSweep_ = now + longSweepInterval;
        core->messages.sweep();
    }

    void stop() EXCLUDES(mutex_) {
        {
            MutexLock lock(mutex_);
            if (std::exchange(isStopped_, true)) return;
            timer_.cancel();
        }
        const auto sessions = core->sessions.close();
        // The sockets are closed behind the last answer.
        const auto left = std::make_shared<std::atomic<std::size_t>>(sessions.size() + 1);
        const auto closeBehindLast = [core = core, left] {
            if (--*left == 0) core->connections.closeAll(goingAway);
        };
        for (const auto& session : sessions) {
            session->strand().post([session, closeBehindLast] {
                session->shutDown();
                closeBehindLast();
            });
        }
        closeBehindLast();
    }

    bool isStopped() EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        return isStopped_;
    }

    const std::shared_ptr<Core> core;

private:
    std::atomic<std::chrono::steady_clock::time_point> nextLongSweep_{};

    connector::Mutex mutex_;
    bool isStopped_ GUARDED_BY(mutex_) = false;
    boost::asio::steady_timer timer_ GUARDED_BY(mutex_);
};

BayeuxServer::BayeuxServer(boost::asio::io_context& context, messages::LocalMessageService& messages,
                           dispatch::RequestDispatcher& dispatcher, ServerOptions options)
    : impl_(std::make_shared<Impl>(context, messages, dispatcher, std::move(options))) {
    impl_->armTimer();
}

BayeuxServer::~BayeuxServer() { stop(); }

std::unique_ptr<PendingPost> BayeuxServer::post(const std::string& body, const Peer& peer,
                                                std::function<void(HttpAnswer)> done) {
    const auto answerNow = [&](HttpAnswer answer) {
        done(std::move(answer));
        return std::make_unique<AnsweredPost>(peer);
    };
    if (impl_->isStopped()) return answerNow(errorAnswer(503, "The server is shutting down"));
    const auto& options = impl_->core->options;
    if (body.size() > options.strangerBytes && !peer.isAuthenticated && !showsSession(body)) {
        return answerNow(errorAnswer(413, "The body is too large for a client without a session"));
    }
    std::vector<Request> requests;
    try {
        requests = readRequests(body, options.depth, options.messagesPerArray,
                                impl_->core->mostValues(peer.isAuthenticated, body));
    } catch (const BadEnvelope& error) {
        return answerNow(errorAnswer(error.httpStatus(), error.what()));
    }
    if (requests.empty()) return answerNow(errorAnswer(400, "There is no message"));
    auto exchange = std::make_shared<PostExchange>(impl_->core, std::move(requests), peer, std::move(done));
    Exchange::start(exchange);
    return std::make_unique<ServerPost>(std::move(exchange));
}

bool BayeuxServer::showsSession(std::string_view body) const { return impl_->core->showsSession(body); }

std::unique_ptr<Socket> BayeuxServer::open(const Peer& peer, SocketActions actions) {
    const auto connection = std::make_shared<Connection>(impl_->core, peer, std::move(actions));
    auto socket = std::make_unique<ServerSocket>(impl_->core, connection);
    if (impl_->isStopped()) connection->close(goingAway);
    return socket;
}

void BayeuxServer::sweep() { impl_->sweep(); }

std::size_t BayeuxServer::sessions() const { return impl_->core->sessions.size(); }

void BayeuxServer::stop() { impl_->stop(); }

}  // namespace gateway::bayeux
