#pragma once

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "events/SubscriptionTable.h"

namespace fake {

/// Runs handlers on the thread that raises the event, one at a time.
class FakeEventMgr : public foundation::msg_svc::eventmgr::EventMgr {
public:
    using BaseEvent = foundation::msg_svc::eventmgr::BaseEvent;

    /// How many subscriptions to events of type `E` are open.
    template <class E>
    std::size_t subscriptionCount() const {
        const std::lock_guard lock(mutex_);
        return static_cast<std::size_t>(std::ranges::count_if(handlers_, [](const auto& entry) {
            return entry.first == E::typeName && !entry.second.expired();
        }));
    }

    /// Exceptions that handlers let out.
    std::atomic<int> handlerFailures{0};

protected:
    void raiseImpl(std::shared_ptr<const BaseEvent> event) override {
        const std::lock_guard lock(dispatch_);
        table_->deliver(*event, [this] { ++handlerFailures; });
    }

    std::unique_ptr<foundation::msg_svc::eventmgr::Connection> subscribeImpl(std::u16string typeName,
                                                                             std::u16string userTag,
                                                                             Handler handler) override {
        const auto shared = std::make_shared<Handler>(std::move(handler));
        {
            const std::lock_guard lock(mutex_);
            handlers_.emplace_back(typeName, shared);
        }
        return table_->add(std::move(typeName), std::move(userTag),
                           [shared](const BaseEvent& event) { (*shared)(event); });
    }

private:
    std::recursive_mutex dispatch_;  // held while handlers run, which may raise events themselves
    const std::shared_ptr<standalone::SubscriptionTable> table_ =
        std::make_shared<standalone::SubscriptionTable>();
    mutable std::mutex mutex_;
    /// Each with the name of its type; they end with their subscriptions.
    std::vector<std::pair<std::u16string, std::weak_ptr<Handler>>> handlers_;
};

}  // namespace fake
