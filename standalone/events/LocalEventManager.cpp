#include "events/LocalEventManager.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <utility>

#include "foundation/log/diagnostic_logger.h"

namespace standalone {

using foundation::msg_svc::eventmgr::BaseEvent;
using foundation::msg_svc::eventmgr::Connection;

// A handler runs under its subscription's own recursive mutex, so that ending the subscription waits for a
// handler on another thread, and not for one that it is called from.
struct LocalEventManager::Subscription {
    Subscription(std::u16string type, std::u16string tag, Handler function)
        : typeName(std::move(type)), userTag(std::move(tag)), handler(std::move(function)) {}

    bool matches(const BaseEvent& event) const {
        if (!event.isKindOf(typeName)) return false;
        const auto& tags = event.getTypeInformation().getUserTags();
        return userTag.empty() || std::find(tags.begin(), tags.end(), userTag) != tags.end();
    }

    const std::u16string typeName;
    const std::u16string userTag;
    const Handler handler;
    std::recursive_mutex running;
    bool isActive = true;  // guarded by `running`
};

class LocalEventManager::LocalConnection : public Connection {
public:
    LocalConnection(std::weak_ptr<LocalEventManager> manager, std::shared_ptr<Subscription> subscription)
        : manager_(std::move(manager)), subscription_(std::move(subscription)) {}
    ~LocalConnection() override { LocalConnection::disconnect(); }

    void disconnect() override {
        const auto subscription = std::move(subscription_);
        if (!subscription) return;
        if (const auto manager = manager_.lock()) manager->remove(subscription);
        const std::lock_guard lock(subscription->running);
        subscription->isActive = false;
    }

private:
    const std::weak_ptr<LocalEventManager> manager_;
    std::shared_ptr<Subscription> subscription_;
};

std::unique_ptr<Connection> LocalEventManager::subscribeImpl(std::u16string typeName, std::u16string userTag,
                                                             Handler handler) {
    auto subscription =
        std::make_shared<Subscription>(std::move(typeName), std::move(userTag), std::move(handler));
    {
        connector::MutexLock lock(mutex_);
        subscriptions_.push_back(subscription);
    }
    return std::make_unique<LocalConnection>(weak_from_this(), std::move(subscription));
}

void LocalEventManager::remove(const std::shared_ptr<Subscription>& subscription) {
    connector::MutexLock lock(mutex_);
    std::erase(subscriptions_, subscription);
}

void LocalEventManager::raise(const BaseEvent& event) {
    std::vector<std::shared_ptr<Subscription>> matching;
    {
        connector::MutexLock lock(mutex_);
        for (const auto& subscription : subscriptions_) {
            if (subscription->matches(event)) matching.push_back(subscription);
        }
    }
    for (const auto& subscription : matching) {
        const std::lock_guard lock(subscription->running);
        if (!subscription->isActive) continue;
        try {
            subscription->handler(event);
        } catch (const std::exception& error) {
            foundation::log::DiagnosticLogger("standalone::events")
                .error("An event handler failed: " + std::string(error.what()));
        }
    }
}

}  // namespace standalone
