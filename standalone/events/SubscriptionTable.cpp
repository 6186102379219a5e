#include "events/SubscriptionTable.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace standalone {

struct SubscriptionTable::Subscription {
    Subscription(std::u16string type, std::u16string tag, Handler function)
        : typeName(std::move(type)), userTag(std::move(tag)), handler(std::move(function)) {}

    bool matches(const BaseEvent& event) const {
        if (!event.isKindOf(typeName)) return false;
        const auto& tags = event.getTypeInformation().getUserTags();
        return userTag.empty() || std::find(tags.begin(), tags.end(), userTag) != tags.end();
    }

    const std::u16string typeName;
    const std::u16string userTag;
    Handler handler;       // changed only when it is not running and never will be again
    bool isActive = true;  // guarded by the table's mutex
};

class SubscriptionTable::TableConnection : public Connection {
public:
    TableConnection(std::shared_ptr<SubscriptionTable> table, std::shared_ptr<Subscription> subscription)
        : table_(std::move(table)), subscription_(std::move(subscription)) {}
    ~TableConnection() override { TableConnection::disconnect(); }

    void disconnect() override {
        if (const auto subscription = std::exchange(subscription_, nullptr)) table_->remove(subscription);
    }

private:
    const std::shared_ptr<SubscriptionTable> table_;
    std::shared_ptr<Subscription> subscription_;
};

std::unique_ptr<SubscriptionTable::Connection> SubscriptionTable::add(std::u16string typeName,
                                                                      std::u16string userTag,
                                                                      Handler handler) {
    auto subscription =
        std::make_shared<Subscription>(std::move(typeName), std::move(userTag), std::move(handler));
    auto connection = std::make_unique<TableConnection>(shared_from_this(), subscription);
    connector::MutexLock lock(mutex_);
    subscriptions_.reserve(subscriptions_.size() + 1);
    count(*subscription, true);
    subscriptions_.push_back(subscription);
    return connection;
}

void SubscriptionTable::count(const Subscription& subscription, bool isNew) {
    auto& counts = subscription.userTag.empty() ? byType_ : byTag_;
    const std::u16string& name = subscription.userTag.empty() ? subscription.typeName : subscription.userTag;
    if (isNew) {
        counts.incrementSubscriptionCount(name);
        size_.fetch_add(1, std::memory_order_release);
    } else {
        size_.fetch_sub(1, std::memory_order_release);
        counts.decrementSubscriptionCount(name);
    }
}

// A handler may end any subscription, its own too, without a wait: all handlers run on the thread that it is
// on.
void SubscriptionTable::remove(const std::shared_ptr<Subscription>& subscription) {
    Handler handler;  // declared first, so what it holds is destroyed without the lock
    connector::MutexLock lock(mutex_);
    subscription->isActive = false;
    if (std::erase(subscriptions_, subscription) > 0) count(*subscription, false);
    while (isRunningLocked(*subscription)) {
        if (deliveringThread_ == std::this_thread::get_id()) return;
        handlerEnded_.wait(lock.native());
    }
    handler = std::move(subscription->handler);
}

bool SubscriptionTable::isRunningLocked(const Subscription& subscription) const {
    return std::find(running_.begin(), running_.end(), &subscription) != running_.end();
}

bool SubscriptionTable::hasSubscriptions(const TypeInformation& type) const {
    if (size_.load(std::memory_order_acquire) == 0) return false;
    if (toAll_.hasSubscriptions() || byType_.hasSubscriptions(type.name())) return true;
    const auto& tags = type.getUserTags();
    return std::any_of(tags.begin(), tags.end(),
                       [this](const std::u16string& tag) { return byTag_.hasSubscriptions(tag); });
}

void SubscriptionTable::deliver(const BaseEvent& event, const std::function<void()>& onException) {
    for (const auto& subscription : matching(event)) {
        if (!begin(*subscription)) continue;
        try {
            subscription->handler(event);
        } catch (...) {
            onException();
        }
        end();
    }
}

SubscriptionTable::Subscriptions SubscriptionTable::matching(const BaseEvent& event) const {
    Subscriptions result;
    connector::MutexLock lock(mutex_);
    std::copy_if(subscriptions_.begin(), subscriptions_.end(), std::back_inserter(result),
                 [&event](const auto& subscription) { return subscription->matches(event); });
    return result;
}

bool SubscriptionTable::begin(Subscription& subscription) {
    connector::MutexLock lock(mutex_);
    if (!subscription.isActive) return false;
    running_.push_back(&subscription);
    deliveringThread_ = std::this_thread::get_id();
    return true;
}

void SubscriptionTable::end() {
    {
        connector::MutexLock lock(mutex_);
        running_.pop_back();
    }
    handlerEnded_.notify_all();
}

}  // namespace standalone
