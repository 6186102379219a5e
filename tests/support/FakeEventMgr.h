#pragma once

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "foundation/msg_svc/eventmgr/EventMgr.h"

namespace fake {

/// Runs handlers on the thread that raises the event, one at a time.
class FakeEventMgr : public foundation::msg_svc::eventmgr::EventMgr {
public:
    using BaseEvent = foundation::msg_svc::eventmgr::BaseEvent;

    /// How many subscriptions to events of type `E` are open.
    template <class E>
    std::size_t subscriptionCount() const {
        const std::lock_guard lock(table_->dispatch);
        return static_cast<std::size_t>(
            std::ranges::count(table_->subscriptions, E::typeName, &Subscription::typeName));
    }

    /// Exceptions that handlers let out.
    std::atomic<int> handlerFailures{0};

protected:
    void raiseImpl(std::shared_ptr<const BaseEvent> event) override {
        const std::lock_guard lock(table_->dispatch);
        const auto subscriptions = table_->subscriptions;
        for (const auto& subscription : subscriptions) {
            if (!subscription->isActive || !subscription->matches(*event)) continue;
            try {
                subscription->handler(*event);
            } catch (...) {
                ++handlerFailures;
            }
        }
    }

    std::unique_ptr<foundation::msg_svc::eventmgr::Connection> subscribeImpl(std::u16string typeName,
                                                                             std::u16string userTag,
                                                                             Handler handler) override {
        auto subscription = std::make_shared<Subscription>(
            Subscription{std::move(typeName), std::move(userTag), std::move(handler)});
        const std::lock_guard lock(table_->dispatch);
        table_->subscriptions.push_back(subscription);
        return std::make_unique<FakeConnection>(table_, std::move(subscription));
    }

private:
    struct Subscription {
        std::u16string typeName, userTag;
        Handler handler;
        bool isActive = true;

        bool matches(const BaseEvent& event) const {
            const auto& tags = event.getTypeInformation().getUserTags();
            return event.isKindOf(typeName) && (userTag.empty() || std::ranges::count(tags, userTag) > 0);
        }
    };

    struct Table {
        // Held while handlers run, which may raise events and end subscriptions themselves; another thread
        // that ends one waits for them.
        std::recursive_mutex dispatch;
        std::vector<std::shared_ptr<Subscription>> subscriptions;
    };

    class FakeConnection : public foundation::msg_svc::eventmgr::Connection {
    public:
        FakeConnection(std::shared_ptr<Table> table, std::shared_ptr<Subscription> subscription)
            : table_(std::move(table)), subscription_(std::move(subscription)) {}
        void disconnect() override {
            const std::lock_guard lock(table_->dispatch);
            subscription_->isActive = false;
            std::erase(table_->subscriptions, subscription_);
        }

    private:
        const std::shared_ptr<Table> table_;
        const std::shared_ptr<Subscription> subscription_;
    };

    const std::shared_ptr<Table> table_ = std::make_shared<Table>();
};

}  // namespace fake
