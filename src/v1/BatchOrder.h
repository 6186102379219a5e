#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <utility>

#include "connector/ThreadSafety.h"

namespace connector::interpreter::v1 {

/// Numbers batches as they are made, and has them delivered one at a time in the order of their numbers.
///
/// Threads: any. What a delivery does may be numbered and delivered as well: it is not waited for then.
/// Locks: mutex_, a leaf; that of the interpreter is released for waits and deliveries.
/// Blocks: while batches with lower numbers are delivered. One that takes longer than two seconds is given
/// up, which is logged: nobody waits for it again, and what follows may overtake it.
class BatchOrder {
public:
    /// The place of one batch, from when it is made until it is delivered or dropped. Move-only.
    class Place {
    public:
        Place() = default;
        Place(Place&& other) noexcept
            : order_(std::exchange(other.order_, nullptr)), number_(other.number_) {}
        Place& operator=(Place&& other) noexcept {
            std::swap(order_, other.order_);
            std::swap(number_, other.number_);
            return *this;
        }
        ~Place() {
            if (order_ != nullptr) order_->end(number_);
        }

    private:
        friend class BatchOrder;
        Place(BatchOrder& order, std::uint64_t number) : order_(&order), number_(number) {}

        BatchOrder* order_ = nullptr;
        std::uint64_t number_ = 0;
    };

    /// The place after those given out before.  Throws: std::bad_alloc.
    Place next() CONNECTOR_EXCLUDES(mutex_);

    /// Calls `deliver` when it is the turn of `place`, which has come from here.
    void deliver(Place place, const std::function<void()>& deliver) CONNECTOR_EXCLUDES(mutex_);

    /// Waits until every batch that has a place by now is delivered.
    void await() CONNECTOR_EXCLUDES(mutex_);

private:
    void end(std::uint64_t number) CONNECTOR_EXCLUDES(mutex_);
    void waitForThoseBefore(std::uint64_t number) CONNECTOR_EXCLUDES(mutex_);
    /// False when the batch took too long and is given up.  Releases `lock` for the wait.
    bool awaitEndLocked(std::uint64_t number, std::unique_lock<std::mutex>& lock) CONNECTOR_REQUIRES(mutex_);

    Mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t last_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::set<std::uint64_t> underWay_ CONNECTOR_GUARDED_BY(mutex_);  ///< but for those that were given up
};

}  // namespace connector::interpreter::v1
