#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "connector/ThreadSafety.h"

namespace foundation::msg_svc::eventmgr {

namespace detail {

using Counter = std::atomic<std::uint64_t>;

/// Counters by name. One is made when its name is first counted or watched, and forgotten when it falls to
/// zero and nobody watches it.
///
/// Threads: any.  Locks: mutex_, a leaf, for one look-up.
class CounterMap {
public:
    void increment(std::u16string_view name) CONNECTOR_EXCLUDES(mutex_);
    /// Leaves a counter that is zero as it is.
    void decrement(std::u16string_view name) CONNECTOR_EXCLUDES(mutex_);
    std::uint64_t count(std::u16string_view name) const CONNECTOR_EXCLUDES(mutex_);
    std::shared_ptr<const Counter> watch(std::u16string_view name) CONNECTOR_EXCLUDES(mutex_);

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::u16string_view name) const {
            return std::hash<std::u16string_view>()(name);
        }
    };

    const std::shared_ptr<Counter>& counterLocked(std::u16string_view name) CONNECTOR_REQUIRES(mutex_);

    mutable connector::Mutex mutex_;
    std::unordered_map<std::u16string, std::shared_ptr<Counter>, Hash, std::equal_to<>> counters_
        CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace detail

/// Tells whether anybody listens to one name, at the price of one atomic load. Copyable.
///
/// Threads: any.  Locks: none.  Owns: shares the counter, so it may outlive what made it.
class WatchToken {
public:
    explicit WatchToken(std::shared_ptr<const detail::Counter> counter) : counter_(std::move(counter)) {}

    std::uint64_t getSubscriptionCount() const { return counter_->load(std::memory_order_acquire); }
    bool hasSubscriptions() const { return getSubscriptionCount() != 0; }

private:
    std::shared_ptr<const detail::Counter> counter_;
};

namespace detail {

/// How many subscriptions there are, by the name of the type of the events. Copies count together.
///
/// Threads: any.  Locks: those of CounterMap.
class SubscriptionCount {
public:
    explicit SubscriptionCount(std::shared_ptr<CounterMap> counters = std::make_shared<CounterMap>())
        : counters_(std::move(counters)) {}

    void incrementSubscriptionCount(std::u16string_view name) { counters_->increment(name); }
    void decrementSubscriptionCount(std::u16string_view name) { counters_->decrement(name); }
    std::uint64_t getSubscriptionCount(std::u16string_view name) const { return counters_->count(name); }
    bool hasSubscriptions(std::u16string_view name) const { return getSubscriptionCount(name) != 0; }
    WatchToken watch(std::u16string_view name) const { return WatchToken(counters_->watch(name)); }

private:
    std::shared_ptr<CounterMap> counters_;
};

/// The same by user tag, for the subscriptions that ask for one.
class SubscriptionCountByTag : public SubscriptionCount {
public:
    using SubscriptionCount::SubscriptionCount;
};

}  // namespace detail

}  // namespace foundation::msg_svc::eventmgr
