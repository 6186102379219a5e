#include "events/LocalEventManager.h"

#include <exception>
#include <utility>

#include "fl/i18n/text.h"
#include "foundation/log/diagnostic_logger.h"
#include "standalone/process.h"

namespace standalone {

namespace {

// The manager whose handlers this thread runs.
thread_local const LocalEventManager* dispatching = nullptr;

const foundation::log::DiagnosticLogger& logger() {
    static const foundation::log::DiagnosticLogger instance("standalone::events");
    return instance;
}

}  // namespace

LocalEventManager::LocalEventManager(EventLimits limits)
    : limits_(limits), thread_([this] { dispatchLoop(); }) {}

void LocalEventManager::raiseImpl(std::shared_ptr<const BaseEvent> event) {
    raiseAround(event, [](const std::function<void()>& wait) { wait(); });
}

void LocalEventManager::raiseAround(const std::shared_ptr<const BaseEvent>& event, const AroundWait& around) {
    if (dispatching == this) {
        deliver(*event);
        return;
    }
    std::uint64_t number = 0;
    {
        connector::MutexLock lock(mutex_);
        if (isStopped_) return;
        number = queueLocked(event, 0, true);
    }
    if (number == 0) return;
    queued_.notify_one();
    Wait end = Wait::Delivered;
    around([&] { end = waitFor(number); });
    if (end == Wait::TimedOut) {
        logger().warning("The handlers of '" + fl::i18n::to_string(event->getTypeInformation().name()) +
                         "' take too long; what raises events goes on without them.");
    }
}

bool LocalEventManager::post(std::shared_ptr<const BaseEvent> event, std::size_t bytes) {
    if (!hasSubscriptions(event->getTypeInformation())) return true;
    {
        connector::MutexLock lock(mutex_);
        if (isStopped_) return true;
        if (queueLocked(std::move(event), bytes, false) == 0) return false;
    }
    queued_.notify_one();
    return true;
}

bool LocalEventManager::postBlocking(const std::shared_ptr<const BaseEvent>& event, std::size_t bytes,
                                     const AroundWait& around, bool hasOwner) {
    const EventRoom& room = hasOwner ? limits_.ownerRoom : limits_.room;
    {
        connector::MutexLock lock(mutex_);
        const bool isRoomWorthAWait = bytes <= limits_.room.bytes && !isStuck_ && dispatching != this;
        if (!isFullLocked(bytes, room) || isStopped_ || !isRoomWorthAWait) {
            lock.unlock();
            return post(event, bytes);
        }
    }
    if (!hasSubscriptions(event->getTypeInformation())) return true;
    bool isQueued = false;
    around([&] { isQueued = queueWhenThereIsRoom(event, bytes, room); });
    return isQueued;
}

// For much room: threads that changed places for every single event would take long.
bool LocalEventManager::queueWhenThereIsRoom(const std::shared_ptr<const BaseEvent>& event, std::size_t bytes,
                                             const EventRoom& room) {
    const auto deadline = std::chrono::steady_clock::now() + limits_.handlerTimeout;
    {
        connector::MutexLock lock(mutex_);
        while (!isStopped_ && !isStuck_ && !queue_.empty() &&
               (queue_.size() > room.events / 2 || isFullLocked(bytes, room))) {
            if (delivered_.wait_until(lock.native(), deadline) == std::cv_status::timeout) isStuck_ = true;
        }
        if (isStopped_) return true;
        if (queueLocked(event, bytes, false) == 0) return false;
    }
    queued_.notify_one();
    return true;
}

bool LocalEventManager::isFullLocked(std::size_t bytes, const EventRoom& room) const {
    return queue_.size() >= room.events || queuedBytes_ + bytes > room.bytes;
}

// The number of the entry, or 0 when it was dropped. Events that are waited for are no more than there are
// threads, so there is room for them; those that would be, but for a handler that does not end, may be many.
std::uint64_t LocalEventManager::queueLocked(std::shared_ptr<const BaseEvent> event, std::size_t bytes,
                                             bool isWaitedFor) {
    const bool isBounded = !isWaitedFor || isStuck_;
    if (isBounded && isFullLocked(bytes, limits_.room)) {
        ++dropped_;
        return 0;
    }
    queue_.push_back(
        Entry{std::move(event), connector::common::ContextState::currentOrNull(), bytes, lastQueued_ + 1});
    queuedBytes_ += bytes;
    return ++lastQueued_;
}

LocalEventManager::Wait LocalEventManager::waitFor(std::uint64_t number) {
    const auto deadline = std::chrono::steady_clock::now() + limits_.handlerTimeout;
    connector::MutexLock lock(mutex_);
    if (isStuck_) return Wait::Stuck;
    while (lastDelivered_ < number) {
        if (isStopped_) return Wait::Stopped;
        if (delivered_.wait_until(lock.native(), deadline) == std::cv_status::timeout &&
            lastDelivered_ < number) {
            return std::exchange(isStuck_, true) ? Wait::Stuck : Wait::TimedOut;
        }
    }
    return Wait::Delivered;
}

void LocalEventManager::dispatchLoop() {
    blockInterpreterSignals();
    dispatching = this;
    connector::MutexLock lock(mutex_);
    for (;;) {
        while (queue_.empty() && !isStopped_) queued_.wait(lock.native());
        if (isStopped_) return;
        Entry entry = std::move(queue_.front());
        queue_.pop_front();
        queuedBytes_ -= entry.bytes;
        const std::size_t dropped = queue_.empty() ? std::exchange(dropped_, 0) : 0;
        lock.unlock();
        if (dropped > 0)
            logger().warning(std::to_string(dropped) + " events were dropped: too many were waiting.");
        {
            const connector::common::CurrentContext context(entry.context);
            deliver(*entry.event);
        }
        entry.event.reset();
        lock.lock();
        lastDelivered_ = entry.number;
        isStuck_ = false;
        delivered_.notify_all();
    }
}

// The handler's own calls are gone by the time its exception is caught, and those that led to it are still
// the same. So the trace is taken then, and costs nothing otherwise.
void LocalEventManager::deliver(const BaseEvent& event) {
    try {
        table_->deliver(event, [this] {
            try {
                processExceptionFromEventHandler(GetStackTrace());
            } catch (const std::exception& error) {
                logger().error("An exception of a handler could not be reported: " +
                               std::string(error.what()));
            }
        });
    } catch (const std::exception& error) {
        logger().error("An event could not be delivered: " + std::string(error.what()));
    }
}

void LocalEventManager::stop() {
    std::deque<Entry> rest;
    std::size_t dropped = 0;
    {
        connector::MutexLock lock(mutex_);
        isStopped_ = true;
        rest.swap(queue_);
        queuedBytes_ = 0;
        dropped = std::exchange(dropped_, 0) + rest.size();
    }
    queued_.notify_all();
    delivered_.notify_all();
    if (thread_.joinable()) thread_.join();
    if (dropped > 0) logger().warning(std::to_string(dropped) + " events were not delivered before the end.");
}

}  // namespace standalone
