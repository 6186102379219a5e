#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "connector/ThreadSafety.h"
#include "v1/log.h"

namespace connector::interpreter::v1 {

/// Counts who wants something, turns it on for the first and off after the last.
///
/// The actions run one at a time, with no lock held, on the thread that finds that the state does not match
/// the count. Whoever changes the count in the meantime leaves the rest to that thread and does not wait: it
/// may be called by something that the action itself waits for. An action that turns on may fail, which is
/// logged; the next change of the count tries again.
///
/// Threads: any.  Locks: mutex_.
class CountedSwitch {
public:
    using Action = std::function<void()>;

    CountedSwitch(Action turnOn, Action turnOff) : turnOn_(std::move(turnOn)), turnOff_(std::move(turnOff)) {}

    void add() CONNECTOR_EXCLUDES(mutex_) {
        {
            MutexLock lock(mutex_);
            ++count_;
        }
        settle();
    }

    /// Returns how many are left, never less than none.
    std::int32_t remove() CONNECTOR_EXCLUDES(mutex_) {
        std::int32_t left = 0;
        {
            MutexLock lock(mutex_);
            if (count_ > 0) --count_;
            left = count_;
        }
        settle();
        return left;
    }

private:
    void settle() CONNECTOR_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        if (isChanging_) return;
        isChanging_ = true;
        while (isOn_ != (count_ > 0)) {
            const bool isWanted = !isOn_;
            lock.unlock();
            const bool isDone = change(isWanted);
            lock.lock();
            if (!isDone) break;
            isOn_ = isWanted;
        }
        isChanging_ = false;
    }

    bool change(bool isWanted) const {
        try {
            (isWanted ? turnOn_ : turnOff_)();
            return true;
        } catch (const std::exception& error) {
            asyncLog().error(std::string("Async eval cannot listen: ") + error.what());
        } catch (...) {
            asyncLog().error("Async eval cannot listen");
        }
        return !isWanted;
    }

    const Action turnOn_;
    const Action turnOff_;
    Mutex mutex_;
    std::int32_t count_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    bool isOn_ CONNECTOR_GUARDED_BY(mutex_) = false;
    bool isChanging_ CONNECTOR_GUARDED_BY(mutex_) =
        false;  ///< some thread is in `settle` and will see the new count
};

}  // namespace connector::interpreter::v1
