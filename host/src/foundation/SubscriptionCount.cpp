#include "foundation/msg_svc/eventmgr/SubscriptionCount.h"

namespace foundation::msg_svc::eventmgr::detail {

void CounterMap::increment(std::u16string_view name) {
    connector::MutexLock lock(mutex_);
    counterLocked(name)->fetch_add(1, std::memory_order_release);
}

void CounterMap::decrement(std::u16string_view name) {
    connector::MutexLock lock(mutex_);
    const auto found = counters_.find(name);
    if (found == counters_.end()) return;
    std::atomic<std::uint64_t>& counter = *found->second;
    if (counter.load(std::memory_order_relaxed) > 0) counter.fetch_sub(1, std::memory_order_release);
    // A watcher's copy can only be made from another watcher's or under the lock, so with this one alone
    // there is no other, nor will there be.
    if (counter.load(std::memory_order_relaxed) == 0 && found->second.use_count() == 1)
        counters_.erase(found);
}

std::uint64_t CounterMap::count(std::u16string_view name) const {
    connector::MutexLock lock(mutex_);
    const auto found = counters_.find(name);
    return found == counters_.end() ? 0 : found->second->load(std::memory_order_relaxed);
}

std::shared_ptr<const Counter> CounterMap::watch(std::u16string_view name) {
    connector::MutexLock lock(mutex_);
    return counterLocked(name);
}

const std::shared_ptr<Counter>& CounterMap::counterLocked(std::u16string_view name) {
    auto found = counters_.find(name);
    if (found == counters_.end()) {
        found = counters_.emplace(std::u16string(name), std::make_shared<Counter>(0)).first;
    }
    return found->second;
}

}  // namespace foundation::msg_svc::eventmgr::detail
