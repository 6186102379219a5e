#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "connector/ThreadSafety.h"
#include "connector/common/ContextState.h"
#include "events/SubscriptionTable.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"

namespace standalone {

/// How many events may wait for their delivery, with how many bytes in what they carry.
struct EventRoom {
    std::size_t events = 10'000;
    std::size_t bytes = std::size_t{64} << 20U;
};

struct EventLimits {
    EventRoom room = {};
    /// For whoever waits for the client that gets them, and sees only later how far that is behind. One event
    /// may be larger.
    EventRoom ownerRoom = {2'000, std::size_t{2} << 20U};
    /// How long `raise` waits for the handlers of its event.
    std::chrono::milliseconds handlerTimeout = std::chrono::seconds(10);
};

/// The event manager of the embedded interpreter. Handlers run on one thread of its own, one at a time and in
/// the order in which the events were raised or posted.
///
///     raise, post -> queued -> handlers run -> delivered
///                       \________ stop ____________________ dropped
///
/// A handler runs in the context that was current where its event was raised or posted.
///
/// Threads: any, but for the destructor and `stop`, which are not for a handler. Make it on a thread that has
/// called blockInterpreterSignals.
/// Locks: mutex_, a leaf, for the queue; handlers, stack traces and log lines come without it.
class LocalEventManager : public foundation::msg_svc::eventmgr::EventMgr {
public:
    using BaseEvent = foundation::msg_svc::eventmgr::BaseEvent;
    using TypeInformation = foundation::msg_svc::eventmgr::TypeInformation;
    using WatchToken = foundation::msg_svc::eventmgr::WatchToken;
    /// Calls its argument, which waits, with a lock of the caller's released.
    using AroundWait = std::function<void(const std::function<void()>&)>;

    explicit LocalEventManager(EventLimits limits = {});
    ~LocalEventManager() override { stop(); }
    LocalEventManager(const LocalEventManager&) = delete;
    LocalEventManager& operator=(const LocalEventManager&) = delete;

    /// Handlers have `limits.handlerTimeout` to end. After that the event keeps its place but is not waited
    /// for any longer, nor is any other until the handler that takes so long has ended. On the dispatch
    /// thread, and so in a handler, the event is delivered at once, before what is queued.
    using EventMgr::raise;
    /// The same for a caller with a lock that handlers may take. The event has its place in the order before
    /// the lock is released.
    template <class E>
    void raise(E&& event, const AroundWait& around) {
        if (const auto shared = shareIfHeard(std::forward<E>(event))) raiseAround(shared, around);
    }

    /// Queues an event that nobody has to wait for; `bytes` is the size of what it carries. Dropped when that
    /// is more than the queue holds: the log says how many were, once the queue has been emptied. False when
    /// an event that somebody listens to is dropped.  Blocks: never on a handler.
    bool post(std::shared_ptr<const BaseEvent> event, std::size_t bytes = 0) CONNECTOR_EXCLUDES(mutex_);

    /// The same, but waits for room with `around`, for `limits.handlerTimeout` at most, and no longer for any
    /// event until the handler that takes so long has ended; on a handler, never. With `hasOwner` it waits
    /// for `limits.ownerRoom`.
    bool postBlocking(const std::shared_ptr<const BaseEvent>& event, std::size_t bytes,
                      const AroundWait& around, bool hasOwner = false) CONNECTOR_EXCLUDES(mutex_);

    /// Whether anybody has asked for events with this tag.
    bool hasSubscribers(std::u16string_view userTag) const { return table_->hasSubscribers(userTag); }
    bool hasSubscriptions(const TypeInformation& type) const override {
        return table_->hasSubscriptions(type);
    }
    /// Tells cheaply whether anybody listens to `E` by its own name, with no tag; or by the tag.
    template <class E>
    WatchToken watch() const {
        return table_->watchType(E::typeName);
    }
    WatchToken watchTag(std::u16string_view userTag) const { return table_->watchTag(userTag); }

    /// Delivers nothing more: drops what is queued, lets go who waits for it, and joins the thread.
    /// Blocks: until the handler that is running has returned.
    void stop() CONNECTOR_EXCLUDES(mutex_);

protected:
    void raiseImpl(std::shared_ptr<const BaseEvent> event) override;
    std::unique_ptr<foundation::msg_svc::eventmgr::Connection> subscribeImpl(std::u16string typeName,
                                                                             std::u16string userTag,
                                                                             Handler handler) override {
        return table_->add(std::move(typeName), std::move(userTag), std::move(handler));
    }

private:
    struct Entry {
        std::shared_ptr<const BaseEvent> event;
        std::shared_ptr<connector::common::ContextState> context;  // of whoever raised it; may be null
        std::size_t bytes = 0;
        std::uint64_t number = 0;
    };
    enum class Wait { Delivered, Stopped, Stuck, TimedOut };

    void raiseAround(const std::shared_ptr<const BaseEvent>& event, const AroundWait& around)
        CONNECTOR_EXCLUDES(mutex_);
    std::uint64_t queueLocked(std::shared_ptr<const BaseEvent> event, std::size_t bytes, bool isWaitedFor)
        CONNECTOR_REQUIRES(mutex_);
    bool isFullLocked(std::size_t bytes, const EventRoom& room) const CONNECTOR_REQUIRES(mutex_);
    bool queueWhenThereIsRoom(const std::shared_ptr<const BaseEvent>& event, std::size_t bytes,
                              const EventRoom& room) CONNECTOR_EXCLUDES(mutex_);
    Wait waitFor(std::uint64_t number) CONNECTOR_EXCLUDES(mutex_);

    void dispatchLoop() CONNECTOR_EXCLUDES(mutex_);
    void deliver(const BaseEvent& event);

    const EventLimits limits_;
    const std::shared_ptr<SubscriptionTable> table_ = std::make_shared<SubscriptionTable>();

    connector::Mutex mutex_;
    std::condition_variable queued_;     // something to deliver, or the end
    std::condition_variable delivered_;  // to who waits for it
    std::deque<Entry> queue_ CONNECTOR_GUARDED_BY(mutex_);
    std::size_t queuedBytes_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::size_t dropped_ CONNECTOR_GUARDED_BY(mutex_) = 0;  // since the queue was empty
    std::uint64_t lastQueued_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::uint64_t lastDelivered_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    bool isStuck_ CONNECTOR_GUARDED_BY(mutex_) =
        false;  // a handler has taken too long, and nothing has ended since
    bool isStopped_ CONNECTOR_GUARDED_BY(mutex_) = false;

    std::thread thread_;
};

}  // namespace standalone
