#include "bayeux/BayeuxSession.h"

#include <algorithm>
#include <utility>

#include "bayeux/Exchange.h"
#include "bayeux/ServerCore.h"
#include "bayeux/channelRules.h"
#include "connector/common/requests.h"
#include "connector/json/write.h"
#include "connector/wireWords.h"
#include "ports/InterpreterPort.h"
#include "ports/wrongLife.h"

namespace gateway::bayeux {

using namespace std::chrono_literals;
using connector::common::RequestRefusal;
using messages::ClientSession;

namespace {

const std::string unknownClientError = errorText(402, "unknown client");

// A client closes the socket itself when it gets the reply to its disconnect.
constexpr auto timeToClose = 1s;

}  // namespace

BayeuxSession::BayeuxSession(std::shared_ptr<ServerCore> core, const Peer& peer,
                             const std::shared_ptr<ClientSession>& client, bool isAcknowledged, Ended ended)
    : core_(std::move(core)),
      peer_(peer),
      client_(client),
      strand_(core_->context),
      ended_(std::move(ended)),
      outbox_(client, isAcknowledged, core_->options.replyBytes),
      subscriptions_(core_->port, client, core_->options.subscriptionsPerSession),
      evaluations_(core_->port, client, core_->options.evaluationsPerSession),
      calls_(core_->port, client, evaluations_.underWay(), core_->options.callsPerSession),
      connects_(core_->options.connectsPerSecond, now()),
      lastActivity_(now()) {
    updateDue();
}

bool BayeuxSession::belongsTo(const Peer& peer) const {
    if (peer.isAuthenticated) return true;
    const bool isOtherPage = !peer.origin.empty() && !peer_.origin.empty() && peer.origin != peer_.origin;
    return peer.address == peer_.address && !isOtherPage;
}

void BayeuxSession::start(const std::shared_ptr<ClientSocket>& socket) {
    if (isEnded_) return;
    client_->setWakeUp([weak = weak_from_this()] {
        if (const auto session = weak.lock()) session->core_->turns.wake(session);
    });
    if (socket) bind(socket);
}

void BayeuxSession::wake() {
    if (isWoken_.exchange(true)) return;
    strand_.post([self = shared_from_this()] {
        self->isWoken_ = false;
        self->work();
    });
}

void BayeuxSession::bind(const std::shared_ptr<ClientSocket>& socket) {
    if (socket_ == socket || !socket->bind(shared_from_this())) return;
    if (socket_) socket_->unbind(*this);
    socket_ = socket;
    wake();
}

bool BayeuxSession::handle(const ClientMessage& message, Exchange& exchange,
                           const std::function<void()>& goOn) {
    if (client_->isClosed()) end(unknownClientError, core_->advice.handshake());
    if (isEnded_) {
        exchange.add(unknownClient(message, core_->advice));
        return true;
    }
    if (const auto socket = exchange.socket()) bind(socket);
    noteActivity();
    updateDue();
    if (auto refusal = refusalByLife(message); !refusal.empty()) {
        exchange.add(std::move(refusal));
        return true;
    }
    if (message.channel() == connector::wire::channel::evalRequest && message.has("data")) {
        stream(message, exchange, goOn);
        return false;
    }
    exchange.add(answer(message, exchange));
    updateDue();
    return true;
}

// A client that knows which process of the interpreter holds its variables does not reach another one.
std::string BayeuxSession::refusalByLife(const ClientMessage& message) const {
    if (isMeta(message.channel())) return "";
    try {
        const auto wanted = message.life();
        const auto life = core_->port.life();
        if (!wanted || *wanted == life) return "";
        return failed(message, errorText(409, message.channel(), ports::wrongLife(*wanted, life)));
    } catch (const dispatch::BadMessage& problem) {
        return failed(message, errorText(400, message.channel(), problem.what()));
    }
}

// Whether the request is taken is known when the interpreter has got it, which nobody else waits for.
void BayeuxSession::stream(const ClientMessage& message, Exchange& exchange,
                           const std::function<void()>& goOn) {
    evaluations_.start(
        message, [strand = strand_, goOn, exchange = exchange.shared_from_this()](const std::string& reply) {
            strand.post([goOn, exchange, reply] {
                exchange->add(reply);
                goOn();
            });
        });
}

std::string BayeuxSession::answer(const ClientMessage& message, Exchange& exchange) {
    const auto& channel = message.channel();
    if (channel == connectChannel) {
        if (isConnectionType(message.text("connectionType"))) {
            connect(message, exchange);
            return "";
        }
        return failed(message, errorText(301, "no common connection type"), core_->advice.none());
    }
    if (channel == disconnectChannel) return disconnect(message);
    if (channel == subscribeChannel) return subscriptions_.subscribe(message);
    if (channel == unsubscribeChannel) return subscriptions_.unsubscribe(message);
    if (isMeta(channel)) return failed(message, errorText(404, channel, "unknown channel"));
    if (isService(channel)) return calls_.start(message);
    return publish(message);
}

// The later of two connects wins: the client does not wait for the earlier one any more.
void BayeuxSession::connect(const ClientMessage& message, Exchange& exchange) {
    if (held_) std::exchange(held_, std::nullopt)->exchange->supersede();
    // Whether the client has got what is still being written is not known, and it must not get it twice.
    if (std::exchange(beingWritten_, nullptr)) outbox_.delivered();
    if (!exchange.socket() && socket_) {  // the client has gone over to HTTP
        socket_->unbind(*this);
        socket_ = nullptr;
    }
    outbox_.acknowledge(static_cast<std::uint64_t>(numberOf(message.extension("ack")).value_or(0)));

    auto timeout = core_->options.timeout;
    if (const auto advice = objectOf(message.get("advice")); !advice.isNull()) {
        const auto wish = numberOf(advice->get("timeout"));
        if (wish) timeout = std::min<std::chrono::milliseconds>(timeout, std::chrono::milliseconds(*wish));
    }
    if (!exchange.canHold()) timeout = 0ms;
    const bool isThrottled = exchange.canHold() && !connects_.take(now());
    held_ = HeldConnect{exchange.shared_from_this(), message, now() + timeout, isThrottled};
    answerHeld();
}

std::string BayeuxSession::publish(const ClientMessage& message) {
    const auto& channel = message.channel();
    if (!isPortableName(channel)) return failed(message, errorText(405, channel, "bad channel name"));
    if (isReservedForServices(channel)) return failed(message, errorText(403, channel, "denied"));
    if (!message.has("data")) return failed(message, errorText(400, channel, "missing data"));
    // It says that the data holds bytes as text, and is the one extension that others have to see.
    Members members;
    if (!objectOf(message.extension("binary")).isNull()) {
        members.add("ext", Members().addJson("binary", "{}"));
    }
    const auto context = std::make_shared<connector::common::ContextState>();
    client_->publish(channel, connector::json::written(message.get("data")), context, members.members());
    const auto refusal = context->getOr(RequestRefusal::contextKey, RequestRefusal());
    if (refusal.status != 0) return failed(message, errorText(refusal.status, channel, refusal.reason));
    return succeeded(message);
}

std::string BayeuxSession::disconnect(const ClientMessage& message) {
    const auto socket = socket_;
    end("", core_->advice.none());
    if (socket) socket->closeLater(now() + timeToClose);
    return succeeded(message);
}

void BayeuxSession::work() {
    if (isEnded_) return;
    if (client_->isClosed()) return end(unknownClientError, core_->advice.handshake());
    deliver();
    if (held_ && held_->isThrottled && connects_.take(now())) held_->isThrottled = false;
    if (const auto answered = answerHeld()) answered->flush();
    expire();
    updateDue();
}

// One frame a turn, so that messages of the client, above all interrupts, come between.
void BayeuxSession::deliver() {
    if (!usesSocket() || beingWritten_ || !socket_->hasRoom()) return;
    const auto deliveries = outbox_.next(core_->options.frameDeliveries);
    if (deliveries.empty()) return;
    outbox_.delivered();
    socket_->send(deliveries, false);
    if (client_->queuedBytes() > 0) wake();
}

/// Answers the held connect, if that is due. Returns the exchange, which is to be flushed.
std::shared_ptr<Exchange> BayeuxSession::answerHeld() {
    if (held_ && held_->exchange->isAbandoned()) {
        held_.reset();
        noteActivity();  // until now the client was there
    }
    if (!held_ || held_->isThrottled) return nullptr;
    const auto deliveries = usesSocket() ? MessageArray() : outbox_.next();
    if (deliveries.empty() && now() < held_->until) return nullptr;
    const auto held = *std::exchange(held_, std::nullopt);
    held.exchange->add(deliveries);
    held.exchange->add(connectReply(held.message));
    if (!held.exchange->socket() && held.exchange->canHold()) {
        beingWritten_ = held.exchange;
    } else {
        outbox_.delivered();
    }
    noteActivity();
    return held.exchange;
}

std::string BayeuxSession::connectReply(const ClientMessage& message) {
    Members members;
    if (message.has("advice")) members.addMembers(core_->advice.retry());
    if (outbox_.isAcknowledged()) members.add("ext", Members().add("ack", outbox_.closeBatch()));
    return succeeded(message, members);
}

void BayeuxSession::release(const Exchange& exchange, bool isWritten) {
    if (beingWritten_.get() == &exchange) {
        if (isWritten) outbox_.delivered();
        beingWritten_.reset();
    }
    noteActivity();
    work();
}

void BayeuxSession::socketClosed(const std::shared_ptr<ClientSocket>& socket) {
    strand_.post([self = shared_from_this(), socket] {
        if (self->socket_ == socket) self->socket_ = nullptr;
        self->noteActivity();
        self->work();
    });
}

void BayeuxSession::shutDown() { end(errorText(503, "shutting down"), core_->advice.retry(1s)); }

// The time since the last answer begins when it is written.
void BayeuxSession::expire() {
    if (held_ || beingWritten_ || now() < lastActivity_ + core_->options.maxInterval) return;
    if (socket_ && !socket_->isWritten()) return noteActivity();
    end("", {});
}

void BayeuxSession::end(const std::string& error, const Members& advice) {
    if (std::exchange(isEnded_, true)) return;
    if (held_) {
        const auto held = *std::exchange(held_, std::nullopt);
        held.exchange->add(error.empty() ? succeeded(held.message, advice)
                                         : failed(held.message, error, advice));
        held.exchange->flush();
    }
    if (socket_) std::exchange(socket_, nullptr)->unbind(*this);
    beingWritten_.reset();
    ended_(*this);
    client_->setWakeUp({});
    client_->close();
}

void BayeuxSession::noteActivity() { lastActivity_ = now(); }

void BayeuxSession::updateDue() {
    if (held_) {
        due_ = held_->isThrottled ? now() : held_->until;
    } else {
        due_ = lastActivity_ + core_->options.maxInterval;
    }
}

BayeuxSession::Time BayeuxSession::now() const { return core_->options.now(); }

}  // namespace gateway::bayeux
