#include "messages/ClientSession.h"

#include <utility>

#include "MessageHub.h"

namespace messages {

using connector::common::ContextScope;
using connector::common::ContextState;

ClientSession::ClientSession(std::shared_ptr<MessageHub> hub, std::string id, std::string clientType,
                             std::shared_ptr<OutgoingQueue> queue)
    : hub_(std::move(hub)),
      id_(std::move(id)),
      clientType_(std::move(clientType)),
      queue_(std::move(queue)) {}

ClientSession::~ClientSession() {
    close();
    queue_->discard();
}

bool ClientSession::subscribe(const std::string& pattern) {
    return !isClosed() && hub_->subscribeClient(id_, {pattern}, std::nullopt);
}

bool ClientSession::subscribe(const std::vector<std::string>& patterns, std::uint64_t after) {
    return !isClosed() && hub_->subscribeClient(id_, patterns, after);
}

std::uint64_t ClientSession::lastNumber() const { return hub_->lastNumber(); }

bool ClientSession::unsubscribe(const std::string& pattern) {
    return !isClosed() && hub_->unsubscribeClient(id_, pattern);
}

bool ClientSession::publish(const std::string& channel, std::string_view data,
                            std::shared_ptr<ContextState> context, std::string_view members) {
    if (isClosed()) return false;
    if (!context) context = std::make_shared<ContextState>();
    if (!clientType_.empty()) context->set("clientType", clientType_, ContextScope::Client);
    hub_->publish(channel, data, context, members);
    return true;
}

std::shared_ptr<connector::common::ClientPace> ClientSession::pace() const { return queue_; }

bool ClientSession::send(const std::shared_ptr<const MessageFrame>& frame) { return queue_->push(frame); }

TakenFrames ClientSession::take(std::size_t maxBytes, std::chrono::milliseconds timeout) {
    auto taken = queue_->take(maxBytes, timeout);
    if (taken.isClosed) hub_->removeClient(id_);
    return taken;
}

void ClientSession::noteReading() { queue_->noteReading(); }

void ClientSession::setWakeUp(std::function<void()> wakeUp) { queue_->setWakeUp(std::move(wakeUp)); }

void ClientSession::close(const std::string& reason) {
    queue_->close(reason);
    hub_->removeClient(id_);
}

bool ClientSession::isClosed() const { return queue_->isClosed(); }

std::string ClientSession::closeReason() const { return queue_->closeReason(); }

std::size_t ClientSession::queuedBytes() const { return queue_->queuedBytes(); }

}  // namespace messages
