#include "worker/LinkMessageService.h"

#include <chrono>
#include <utility>

#include "connector/common/RequestOrigin.h"
#include "messages/LocalMessageService.h"
#include "messages/Token.h"
#include "messages/channelNames.h"

namespace worker {

using connector::Future;
using connector::MutexLock;
using connector::common::ContextState;
using connector::common::RequestOrigin;
using connector::message_service::JsonMessage;
using links::Kind;
using messages::LocalSubscriber;
using messages::Recipients;

namespace {

// Of what may be lost. The gateway reads a gigabyte a second, so more than this waits only where it stands
// still.
constexpr std::size_t mostWaiting = std::size_t{8} << 20;
constexpr auto longestWait = std::chrono::seconds(10);

std::string headOf(const std::string& channel, const RequestOrigin* origin) {
    links::PublishHead head{.channel = channel, .request = {}, .prompt = 0, .echo = true};
    if (origin != nullptr) {
        head.request = origin->request;
        head.prompt = origin->prompt;
        head.echo = origin->echo;
    }
    return head.encode();
}

}  // namespace

struct LinkMessageService::Watch {
    Watch(SubscribeHandler onSubscribe, UnsubscribeHandler onUnsubscribe)
        : subscribed(std::move(onSubscribe)), unsubscribed(std::move(onUnsubscribe)) {}

    const SubscribeHandler subscribed;
    const UnsubscribeHandler unsubscribed;
    messages::HandlerGate gate;
    bool isTold = false;  // what is there; under the mutex of the service
};

LinkMessageService::LinkMessageService(std::shared_ptr<links::FrameWriter> writer, ReadOn readOn)
    : writer_(std::move(writer)),
      readOn_(std::move(readOn)),
      table_(messages::MessageServiceOptions().droppable, {}, {}) {}

std::shared_ptr<const Recipients> LinkMessageService::recipientsOf(const std::string& channel) {
    const MutexLock lock(mutex_);
    return table_.find(channel);
}

Future<void> LinkMessageService::publish(const std::string& channel,
                                         const connector::common::DataBuffer& data) {
    messages::requireMessage(channel, data.view());
    const auto context = ContextState::current();
    const auto recipients = recipientsOf(channel);
    const bool mayBeLost = !recipients->lossClass.empty();
    if (mayBeLost) awaitRoom();
    std::string body(data.view());
    const auto message =
        recipients->subscribers.empty() ? JsonMessage() : JsonMessage{channel, body, context};
    writer_->send({.kind = Kind::Publish,
                   .id = 0,
                   .mayBeLost = mayBeLost,
                   .head = headOf(channel, RequestOrigin::of(*context).get()),
                   .body = std::move(body)});
    messages::tell(*recipients, message);
    return connector::makeReadyFuture();
}

void LinkMessageService::awaitRoom() {
    if (writer_->queuedBytes() > mostWaiting) writer_->waitUntilBelow(mostWaiting, longestWait);
}

std::unique_ptr<LinkMessageService::Subscription> LinkMessageService::subscribe(const std::string& pattern,
                                                                                MessageHandler handler) {
    auto subscriber =
        std::make_shared<LocalSubscriber>(messages::requirePattern(pattern), std::move(handler));
    const MutexLock lock(mutex_);
    const auto number = ++lastNumber_;
    table_.add(pattern, number, subscriber);
    if (++listeners_[pattern] == 1) writer_->send({.kind = Kind::Listen, .head = pattern, .body = {}});
    return std::make_unique<messages::Token>([weak = weak_from_this(), subscriber, number] {
        if (const auto self = weak.lock()) self->removeSubscriber(*subscriber, number);
        subscriber->gate.end();
    });
}

void LinkMessageService::removeSubscriber(const LocalSubscriber& subscriber, std::uint64_t number) {
    const MutexLock lock(mutex_);
    table_.remove(subscriber.pattern, number);
    const auto found = listeners_.find(subscriber.pattern);
    if (--found->second > 0) return;
    listeners_.erase(found);
    writer_->send({.kind = Kind::Unlisten, .head = subscriber.pattern, .body = {}});
}

std::unique_ptr<LinkMessageService::Subscription> LinkMessageService::watch(const std::string& pattern,
                                                                            SubscribeHandler subscribed,
                                                                            UnsubscribeHandler unsubscribed) {
    messages::requirePattern(pattern);
    const auto watch = std::make_shared<Watch>(std::move(subscribed), std::move(unsubscribed));
    std::uint64_t number = 0;
    bool isOver = false;
    {
        const MutexLock lock(mutex_);
        isOver = isEnded_;
        number = ++lastNumber_;
        watches_.emplace(number, watch);
        writer_->send({.kind = Kind::Watch, .id = number, .head = pattern, .body = {}});
    }
    auto token = std::make_unique<messages::Token>([weak = weak_from_this(), watch, number] {
        if (const auto self = weak.lock()) self->removeWatch(number);
        watch->gate.end();
    });
    if (isOver || readOn_(number)) return token;
    MutexLock lock(mutex_);
    while (!watch->isTold && !isEnded_) told_.wait(lock.native());
    return token;
}

void LinkMessageService::removeWatch(std::uint64_t number) {
    std::shared_ptr<Watch> watch;  // goes without the lock
    const MutexLock lock(mutex_);
    const auto found = watches_.find(number);
    watch = std::move(found->second);
    watches_.erase(found);
    writer_->send({.kind = Kind::Unwatch, .id = number, .head = {}, .body = {}});
}

void LinkMessageService::deliver(const JsonMessage& message) {
    messages::tell(*recipientsOf(message.channel), message);
}

std::shared_ptr<LinkMessageService::Watch> LinkMessageService::findWatch(std::uint64_t number) {
    const MutexLock lock(mutex_);
    const auto found = watches_.find(number);
    return found == watches_.end() ? nullptr : found->second;
}

void LinkMessageService::tell(std::uint64_t number, const links::NoticeHead& notice) {
    const auto watch = findWatch(number);
    if (!watch) return;  // it has ended meanwhile
    watch->gate.run([&] {
        if (notice.isSubscribed) {
            watch->subscribed({notice.channel, notice.clientId, notice.clientType});
        } else {
            watch->unsubscribed({notice.channel, notice.clientId, notice.clientType});
        }
    });
}

void LinkMessageService::endNotices(std::uint64_t number) {
    {
        const MutexLock lock(mutex_);
        if (const auto found = watches_.find(number); found != watches_.end()) found->second->isTold = true;
    }
    told_.notify_all();
}

void LinkMessageService::end() {
    {
        const MutexLock lock(mutex_);
        isEnded_ = true;
    }
    told_.notify_all();
}

}  // namespace worker
