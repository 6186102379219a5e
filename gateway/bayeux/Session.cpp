#include "bayeux/Session.h"

#include <algorithm>
#include <utility>

#include "bayeux/Connection.h"
#include "bayeux/Core.h"
#include "bayeux/Exchange.h"
#include "bayeux/channelRules.h"
#include "bayeux/handshake.h"
#include "bayeux/publish.h"
#include "bayeux/replies.h"
#include "messages/LocalMessageService.h"

namespace gateway::bayeux {

using namespace std::chrono_literals;
using messages::ClientSession;

namespace {

const std::string unknownClientError = errorText(402, "unknown client");

// A client closes the socket itself when it gets the reply to its disconnect.
constexpr auto timeToClose = 1s;

}  // namespace

std::string unknownClient(const Request& request, const Advice& advice) {
    return failed(request, unknownClientError, request.channel() == connectChannel ? advice.handshake() : "");
}

std::shared_ptr<Session> Session::open(const std::shared_ptr<Core>& core, const Peer& peer,
                                       bool isAcknowledged, const std::shared_ptr<Connection>& socket) {
    const auto client =
        core->messages.openSession({.clientType = peer.clientType, .queueBytes = core->options.queueBytes});
    auto session = std::make_shared<Session>(core, peer, client, isAcknowledged);
    if (!core->sessions.add(session)) return nullptr;
    session->strand_.post([session, socket] { session->start(socket); });
    return session;
}

Session::Session(const std::shared_ptr<Core>& core, const Peer& peer,
                 const std::shared_ptr<ClientSession>& client, bool isAcknowledged)
    : core_(core),
      peer_(peer),
      client_(client),
      strand_(core->context),
      outbox_(client, isAcknowledged, core->options.replyBytes),
      subscriptions_(client, core->options.subscriptionsPerSession),
      evaluations_(std::make_shared<connector::common::ClientRequests>()),
      calls_(core->dispatcher, client, evaluations_, core->options.callsPerSession),
      connects_(core->options.connectsPerSecond, core->options.now()),
      lastSign_(core->options.now()) {
    updateDue();
}

bool Session::belongsTo(const Peer& peer) const {
    if (peer.isAuthenticated) return true;
    const bool isOtherPage = !peer.origin.empty() && !peer_.origin.empty() && peer.origin != peer_.origin;
    return peer.address == peer_.address && !isOtherPage;
}

void Session::start(const std::shared_ptr<Connection>& socket) {
    if (isEnded_) return;
    client_->setWakeUp([weak = weak_from_this()] {
        if (const auto session = weak.lock()) session->core_->turns.wake(session);
    });
    if (socket) bind(socket);
}

void Session::wake() {
    if (isWoken_.exchange(true)) return;
    strand_.post([self = shared_from_this()] {
        self->isWoken_ = false;
        self->work();
    });
}

void Session::bind(const std::shared_ptr<Connection>& socket) {
    if (socket_ == socket || !socket->bind(shared_from_this())) return;
    if (socket_) socket_->unbind(*this);
    socket_ = socket;
    wake();
}

void Session::handle(const Request& request, Exchange& exchange) {
    if (client_->isClosed()) end(unknownClientError, core_->advice.handshake());
    if (isEnded_) return exchange.add(unknownClient(request, core_->advice));
    if (const auto socket = exchange.connection()) bind(socket);
    noteSign();
    exchange.add(answer(request, exchange));
    updateDue();
}

std::string Session::answer(const Request& request, Exchange& exchange) {
    const auto& channel = request.channel();
    if (channel == connectChannel) {
        if (isConnectionType(request.text("connectionType"))) {
            connect(request, exchange);
            return "";
        }
        return failed(request, errorText(301, "no common connection type"), core_->advice.none());
    }
    if (channel == disconnectChannel) return disconnect(request);
    if (channel == subscribeChannel) return subscriptions_.subscribe(request);
    if (channel == unsubscribeChannel) return subscriptions_.unsubscribe(request);
    if (isMeta(channel)) return failed(request, errorText(404, channel, "unknown channel"));
    if (isService(channel)) return calls_.start(request);
    return publish(*client_, request, evaluations_, core_->options.evaluationsPerSession);
}

// The later of two connects wins: the client does not wait for the earlier one any more.
void Session::connect(const Request& request, Exchange& exchange) {
    if (hold_) std::exchange(hold_, std::nullopt)->exchange->supersede();
    // Whether the client has got what is still being written is not known, and it must not get it twice.
    if (std::exchange(beingWritten_, nullptr)) outbox_.delivered();
    if (!exchange.connection() && socket_) {  // the client has gone over to HTTP
        socket_->unbind(*this);
        socket_ = nullptr;
    }
    outbox_.acknowledge(static_cast<std::uint64_t>(numberOf(request.extension("ack")).value_or(0)));

    auto timeout = core_->options.timeout;
    if (const auto advice = objectOf(request.get("advice")); !advice.isNull()) {
        const auto wish = numberOf(advice->get("timeout"));
        if (wish) timeout = std::min<std::chrono::milliseconds>(timeout, std::chrono::milliseconds(*wish));
    }
    if (!exchange.canHold()) timeout = 0ms;
    const bool isThrottled = exchange.canHold() && !connects_.take(now());
    hold_ = Hold{exchange.shared_from_this(), request, now() + timeout, isThrottled};
    answerHeld();
}

std::string Session::disconnect(const Request& request) {
    const auto socket = socket_;
    end("", core_->advice.none());
    if (socket) core_->connections.closeLater(socket, now() + timeToClose);
    return succeeded(request);
}

void Session::work() {
    if (isEnded_) return;
    if (client_->isClosed()) return end(unknownClientError, core_->advice.handshake());
    push();
    if (hold_ && hold_->isThrottled && connects_.take(now())) hold_->isThrottled = false;
    if (const auto answered = answerHeld()) answered->flush();
    expire();
    updateDue();
}

// One frame a turn, so that messages of the client, above all interrupts, come between.
void Session::push() {
    if (!pushes() || beingWritten_ || !socket_->hasRoom()) return;
    const auto deliveries = outbox_.next();
    if (deliveries.empty()) return;
    outbox_.delivered();
    socket_->send("[" + deliveries + "]", false);
    if (client_->queuedBytes() > 0) wake();
}

/// Answers the held connect, if that is due. Returns the exchange, which is to be flushed.
std::shared_ptr<Exchange> Session::answerHeld() {
    if (hold_ && hold_->exchange->isAbandoned()) {
        hold_.reset();
        noteSign();  // until now the client was there
    }
    if (!hold_ || hold_->isThrottled) return nullptr;
    const auto deliveries = pushes() ? "" : outbox_.next();
    if (deliveries.empty() && now() < hold_->until) return nullptr;
    const auto hold = *std::exchange(hold_, std::nullopt);
    hold.exchange->add(deliveries);
    hold.exchange->add(connectReply(hold.request));
    if (!hold.exchange->connection() && hold.exchange->canHold()) {
        beingWritten_ = hold.exchange;
    } else {
        outbox_.delivered();
    }
    noteSign();
    return hold.exchange;
}

std::string Session::connectReply(const Request& request) {
    std::string members;
    if (request.has("advice")) members = core_->advice.retry();
    if (outbox_.isAcknowledged()) {
        members += R"(,"ext":{"ack":)" + std::to_string(outbox_.closeBatch()) + "}";
    }
    return succeeded(request, members);
}

void Session::release(const Exchange& exchange, bool isWritten) {
    if (beingWritten_.get() == &exchange) {
        if (isWritten) outbox_.delivered();
        beingWritten_.reset();
    }
    noteSign();
    work();
}

void Session::loseSocket(const std::shared_ptr<Connection>& socket) {
    if (socket_ == socket) socket_ = nullptr;
    noteSign();
    work();
}

void Session::shutDown() { end(errorText(503, "shutting down"), core_->advice.retry(1s)); }

// The time since the last answer begins when it is written.
void Session::expire() {
    if (hold_ || beingWritten_ || now() < lastSign_ + core_->options.maxInterval) return;
    if (socket_ && !socket_->isWritten()) return noteSign();
    end("", "");
}

void Session::end(const std::string& error, const std::string& advice) {
    if (std::exchange(isEnded_, true)) return;
    if (hold_) {
        const auto hold = *std::exchange(hold_, std::nullopt);
        hold.exchange->add(error.empty() ? succeeded(hold.request, advice)
                                         : failed(hold.request, error, advice));
        hold.exchange->flush();
    }
    if (socket_) std::exchange(socket_, nullptr)->unbind(*this);
    beingWritten_.reset();
    core_->sessions.remove(*this);
    client_->setWakeUp({});
    client_->close();
}

void Session::noteSign() { lastSign_ = now(); }

void Session::updateDue() {
    if (hold_) {
        due_ = hold_->isThrottled ? now() : hold_->until;
    } else {
        due_ = lastSign_ + core_->options.maxInterval;
    }
}

Session::Time Session::now() const { return core_->options.now(); }

}  // namespace gateway::bayeux
