#include "MessageHub.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "messages/Token.h"
#include "messages/channelNames.h"
#include "textPieces.h"

namespace messages {

using connector::MutexLock;
using connector::common::RequestOrigin;

namespace {

// A text that may be lost is queued in pieces of this size: a queue then loses no more than it has to, and a
// socket that stands still holds no more than one.
constexpr std::size_t pieceBytes = std::size_t{64} << 10;

std::uint64_t firstNumber(const MessageServiceOptions& options) {
    if (options.firstNumber > 0) return options.firstNumber;
    using namespace std::chrono;
    const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    return static_cast<std::uint64_t>(now);
}

}  // namespace

MessageHub::MessageHub(MessageServiceOptions options)
    : options_(std::move(options)),
      log_(options_.logBytes, firstNumber(options_)),
      table_(options_.droppable, options_.logged, options_.forServices) {
    for (const auto& pattern : options_.droppable) requirePattern(pattern);
    for (const auto& pattern : options_.logged) requirePattern(pattern);
    for (const auto& pattern : options_.forServices) requirePattern(pattern);
}

std::shared_ptr<const Recipients> MessageHub::recipientsOf(const std::string& channel) {
    MutexLock lock(mutex_);
    return table_.find(channel);
}

// The sessions come first: what a handler publishes then follows the message that it was called for.
void MessageHub::publish(const std::string& channel, std::string_view data, const Context& context,
                         std::string_view members) {
    requireMessage(channel, data);
    counters_->messagesPublished.fetch_add(1, std::memory_order_relaxed);
    const auto recipients = recipientsOf(channel);
    const auto origin = context ? RequestOrigin::of(*context) : nullptr;
    const auto* const owner = origin ? origin->pace.get() : nullptr;
    const MessageMembers all(members, origin.get());
    if (data.size() <= pieceBytes || recipients->lossClass.empty() || !isJsonString(data)) {
        queue(channel, data, all, *recipients, owner);
    } else {
        queueInPieces(channel, data, all, *recipients, owner);
    }
    if (!recipients->subscribers.empty()) {
        tell(*recipients, {channel, std::string(data), context});
    }
}

void MessageHub::queue(const std::string& channel, std::string_view data, const MessageMembers& members,
                       const Recipients& recipients, const Pace* owner) {
    if (recipients.isLogged) return publishLogged(channel, data, members, owner);
    if (recipients.clients.empty()) return;
    counters_->framesBuilt.fetch_add(1, std::memory_order_relaxed);
    const auto frame =
        std::make_shared<const MessageFrame>(channel, data, members.text(), recipients.lossClass);
    for (const auto& client : recipients.clients) client->push(frame, owner);
}

void MessageHub::queueInPieces(const std::string& channel, std::string_view data,
                               const MessageMembers& members, const Recipients& recipients,
                               const Pace* owner) {
    std::string_view text = data.substr(1, data.size() - 2);
    while (!text.empty()) {
        const std::size_t size = firstPiece(text, pieceBytes);
        std::string piece = "\"";
        piece.reserve(size + 2);
        piece.append(text.substr(0, size)).push_back('"');
        queue(channel, piece, members, recipients, owner);
        text.remove_prefix(size);
    }
}

// Who gets the message is looked up anew: a client may have subscribed before the message had its number.
void MessageHub::publishLogged(const std::string& channel, std::string_view data,
                               const MessageMembers& members, const Pace* owner) {
    std::vector<OutgoingQueue::WakeUp> wakeUps;
    {
        MutexLock lock(logMutex_);
        const auto recipients = recipientsOf(channel);
        const auto frame = log_.add(channel, data, recipients->lossClass, members);
        if (!recipients->clients.empty()) counters_->framesBuilt.fetch_add(1, std::memory_order_relaxed);
        for (const auto& client : recipients->clients) client->push(frame, owner, wakeUps);
    }
    for (const auto& wakeUp : wakeUps) OutgoingQueue::call(wakeUp);
}

std::unique_ptr<MessageHub::Subscription> MessageHub::subscribe(const std::string& pattern,
                                                                MessageService::MessageHandler handler) {
    auto subscriber = std::make_shared<LocalSubscriber>(requirePattern(pattern), std::move(handler));
    MutexLock lock(mutex_);
    const auto number = ++lastNumber_;
    table_.add(pattern, number, subscriber);
    return std::make_unique<Token>([weak = weak_from_this(), subscriber, number] {
        if (const auto hub = weak.lock()) hub->removeSubscriber(subscriber->pattern, number);
        subscriber->gate.end();
    });
}

std::unique_ptr<MessageHub::Subscription> MessageHub::watch(const std::string& pattern,
                                                            MessageService::SubscribeHandler subscribed,
                                                            MessageService::UnsubscribeHandler unsubscribed) {
    const auto watcher =
        std::make_shared<Watcher>(requirePattern(pattern), std::move(subscribed), std::move(unsubscribed));
    auto token = std::make_unique<Token>([weak = weak_from_this(), watcher] {
        if (const auto hub = weak.lock()) hub->removeWatcher(watcher);
        watcher->end();
    });
    {
        MutexLock lock(mutex_);
        for (const auto& [id, client] : clients_) {
            for (const auto& held : client.patterns) {
                if (canMatch(pattern, held)) watcher->add({true, held, id, client.clientType});
            }
        }
        watchers_.insert(watcher);
    }
    watcher->start();
    return token;
}

void MessageHub::removeSubscriber(const std::string& pattern, std::uint64_t number) {
    MutexLock lock(mutex_);
    table_.remove(pattern, number);
}

void MessageHub::removeWatcher(const std::shared_ptr<Watcher>& watcher) {
    MutexLock lock(mutex_);
    watchers_.erase(watcher);
}

std::shared_ptr<OutgoingQueue> MessageHub::addClient(const std::string& id, const SessionOptions& options) {
    auto queue = std::make_shared<OutgoingQueue>(options, options_.now, counters_);
    MutexLock lock(mutex_);
    clients_.emplace(id, Client{++lastNumber_, options.clientType, queue, {}});
    return queue;
}

void MessageHub::addNoticeLocked(const Clients::value_type& client, const std::string& pattern,
                                 bool isSubscribed, Watchers& concerned) {
    for (const auto& watcher : watchers_) {
        if (!canMatch(watcher->pattern(), pattern)) continue;
        watcher->add({isSubscribed, pattern, client.first, client.second.clientType});
        concerned.insert(watcher);
    }
}

bool MessageHub::subscribeClient(const std::string& id, const Patterns& patterns,
                                 std::optional<std::uint64_t> after) {
    for (const auto& pattern : patterns) requirePattern(pattern);
    Watchers concerned;
    std::vector<OutgoingQueue::WakeUp> wakeUps;
    const bool isKnown = after ? subscribeLogged(id, patterns, *after, concerned, wakeUps)
                               : addSubscriptions(id, patterns, concerned) != nullptr;
    for (const auto& wakeUp : wakeUps) OutgoingQueue::call(wakeUp);
    for (const auto& watcher : concerned) watcher->tell();
    return isKnown;
}

// With the log's mutex held, so that nothing is published between the last message played and the first new
// one.
bool MessageHub::subscribeLogged(const std::string& id, const Patterns& patterns, std::uint64_t after,
                                 Watchers& concerned, std::vector<OutgoingQueue::WakeUp>& wakeUps) {
    MutexLock lock(logMutex_);
    Patterns added;
    const auto queue = addSubscriptions(id, patterns, concerned, &added);
    if (!queue) return false;
    if (added.empty()) return true;
    for (const auto& frame : log_.after(after, added)) queue->push(frame, nullptr, wakeUps);
    return true;
}

std::shared_ptr<OutgoingQueue> MessageHub::addSubscriptions(const std::string& id, const Patterns& patterns,
                                                            Watchers& concerned, Patterns* added) {
    MutexLock lock(mutex_);
    const auto found = clients_.find(id);
    if (found == clients_.end()) return nullptr;
    auto& client = found->second;
    for (const auto& pattern : patterns) {
        if (!table_.add(pattern, client.number, client.queue)) continue;
        client.patterns.push_back(pattern);
        if (added) added->push_back(pattern);
        addNoticeLocked(*found, pattern, true, concerned);
    }
    return client.queue;
}

std::uint64_t MessageHub::lastNumber() {
    MutexLock lock(logMutex_);
    return log_.last();
}

bool MessageHub::unsubscribeClient(const std::string& id, const std::string& pattern) {
    requirePattern(pattern);
    Watchers concerned;
    {
        MutexLock lock(mutex_);
        const auto found = clients_.find(id);
        if (found == clients_.end()) return false;
        if (!table_.remove(pattern, found->second.number)) return true;
        std::erase(found->second.patterns, pattern);
        addNoticeLocked(*found, pattern, false, concerned);
    }
    for (const auto& watcher : concerned) watcher->tell();
    return true;
}

void MessageHub::removeClient(const std::string& id) {
    Watchers concerned;
    {
        MutexLock lock(mutex_);
        const auto found = clients_.find(id);
        if (found == clients_.end()) return;
        for (const auto& pattern : found->second.patterns) {
            table_.remove(pattern, found->second.number);
            addNoticeLocked(*found, pattern, false, concerned);
        }
        clients_.erase(found);
    }
    for (const auto& watcher : concerned) watcher->tell();
}

void MessageHub::sweep() {
    std::vector<std::pair<std::string, std::shared_ptr<OutgoingQueue>>> clients;
    {
        MutexLock lock(mutex_);
        for (const auto& [id, client] : clients_) clients.emplace_back(id, client.queue);
    }
    for (const auto& [id, queue] : clients) {
        if (queue->closeWhenOverdue()) removeClient(id);
    }
}

MessageMetrics MessageHub::metrics() {
    std::vector<std::shared_ptr<OutgoingQueue>> queues;
    {
        MutexLock lock(mutex_);
        for (const auto& [id, client] : clients_) queues.push_back(client.queue);
    }
    MessageMetrics metrics;
    for (const auto& queue : queues) {
        if (queue->isClosed()) continue;
        ++metrics.openSessions;
        metrics.queuedBytes += queue->queuedBytes();
    }
    metrics.droppedMessages = counters_->droppedMessages;
    metrics.droppedBytes = counters_->droppedBytes;
    metrics.framesBuilt = counters_->framesBuilt;
    metrics.messagesPublished = counters_->messagesPublished;
    return metrics;
}

}  // namespace messages
