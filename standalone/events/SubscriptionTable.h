#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "connector/ThreadSafety.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"
#include "foundation/msg_svc/eventmgr/SubscriptionCount.h"

namespace standalone {

/// Who listens to what, and who is being called.
///
/// Threads: any, but deliveries come one at a time and from one thread, nested ones included.
/// Locks: mutex_, then the counters' own; handlers run without either.
class SubscriptionTable : public std::enable_shared_from_this<SubscriptionTable> {
public:
    using BaseEvent = foundation::msg_svc::eventmgr::BaseEvent;
    using Connection = foundation::msg_svc::eventmgr::Connection;
    using Handler = foundation::msg_svc::eventmgr::EventMgr::Handler;
    using TypeInformation = foundation::msg_svc::eventmgr::TypeInformation;
    using WatchToken = foundation::msg_svc::eventmgr::WatchToken;

    /// The connection shares the table, and ends the subscription when it is destroyed. An empty tag stands
    /// for all events of the type.
    std::unique_ptr<Connection> add(std::u16string typeName, std::u16string userTag, Handler handler)
        CONNECTOR_EXCLUDES(mutex_);

    /// Calls the handlers that match. One whose subscription ends in the course of it is not called any more,
    /// one that is added is not called yet. `onException` is called in the place where an exception of a
    /// handler was caught.
    void deliver(const BaseEvent& event, const std::function<void()>& onException) CONNECTOR_EXCLUDES(mutex_);

    /// Whether a subscription may match: one to the type, one to all events, or one to any of the tags.
    bool hasSubscriptions(const TypeInformation& type) const;
    /// Whether there is one to the tag.
    bool hasSubscribers(std::u16string_view userTag) const {
        return size_.load(std::memory_order_acquire) != 0 && byTag_.hasSubscriptions(userTag);
    }
    /// Counts the subscriptions to a type, those that ask for a tag left out; and those that ask for a tag.
    WatchToken watchType(std::u16string_view typeName) const { return byType_.watch(typeName); }
    WatchToken watchTag(std::u16string_view userTag) const { return byTag_.watch(userTag); }

private:
    struct Subscription;
    class TableConnection;
    using Subscriptions = std::vector<std::shared_ptr<Subscription>>;

    void remove(const std::shared_ptr<Subscription>& subscription) CONNECTOR_EXCLUDES(mutex_);
    void count(const Subscription& subscription, bool isNew);
    Subscriptions matching(const BaseEvent& event) const CONNECTOR_EXCLUDES(mutex_);
    bool begin(Subscription& subscription) CONNECTOR_EXCLUDES(mutex_);
    void end() CONNECTOR_EXCLUDES(mutex_);
    bool isRunningLocked(const Subscription& subscription) const CONNECTOR_REQUIRES(mutex_);

    foundation::msg_svc::eventmgr::detail::SubscriptionCount byType_;
    foundation::msg_svc::eventmgr::detail::SubscriptionCountByTag byTag_;
    const WatchToken toAll_ = byType_.watch(BaseEvent::typeName);
    std::atomic<std::size_t> size_{0};  // so that nothing else is looked at while nobody listens to anything

    mutable connector::Mutex mutex_;
    std::condition_variable handlerEnded_;
    Subscriptions subscriptions_ CONNECTOR_GUARDED_BY(mutex_);
    std::vector<const Subscription*> running_ CONNECTOR_GUARDED_BY(mutex_);  // innermost last
    std::thread::id deliveringThread_ CONNECTOR_GUARDED_BY(mutex_);          // of what is running
};

}  // namespace standalone
