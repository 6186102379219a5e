#include "v1/BatchOrder.h"

#include <chrono>

#include "host/Environment.h"
#include "v1/log.h"

namespace connector::interpreter::v1 {

namespace {

constexpr auto patience = std::chrono::seconds(2);

// For which order this thread is delivering a batch.
thread_local const BatchOrder* delivering = nullptr;

class Delivering {
public:
    explicit Delivering(const BatchOrder* order) : outer_(std::exchange(delivering, order)) {}
    ~Delivering() { delivering = outer_; }
    Delivering(const Delivering&) = delete;
    Delivering& operator=(const Delivering&) = delete;

private:
    const BatchOrder* const outer_;
};

}  // namespace

BatchOrder::Place BatchOrder::next() {
    MutexLock lock(mutex_);
    underWay_.insert(underWay_.end(), last_ + 1);
    return {*this, ++last_};
}

// The place ends before the interpreter's lock is taken again: the next may be that of who holds it.
void BatchOrder::deliver(Place place, const std::function<void()>& deliver) {
    host::unlocked([&] {
        const Place own = std::move(place);
        if (delivering != this) waitForThoseBefore(own.number_);
        const Delivering scope(this);
        deliver();
    });
}

void BatchOrder::await() {
    if (delivering == this) return;
    host::unlocked([this] {
        std::uint64_t next = 0;
        {
            MutexLock lock(mutex_);
            next = last_ + 1;
        }
        waitForThoseBefore(next);
    });
}

void BatchOrder::end(std::uint64_t number) {
    {
        MutexLock lock(mutex_);
        underWay_.erase(number);
    }
    changed_.notify_all();
}

void BatchOrder::waitForThoseBefore(std::uint64_t number) {
    MutexLock lock(mutex_);
    while (!underWay_.empty() && *underWay_.begin() < number) {
        if (awaitEndLocked(*underWay_.begin(), lock.native())) continue;
        lock.unlock();
        changed_.notify_all();
        asyncLog().warning("Output is slow to be published; what follows may overtake it.");
        lock.lock();
    }
}

bool BatchOrder::awaitEndLocked(std::uint64_t number, std::unique_lock<std::mutex>& lock) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (underWay_.contains(number)) {
        if (changed_.wait_until(lock, deadline) == std::cv_status::timeout) break;
    }
    return underWay_.erase(number) == 0;
}

}  // namespace connector::interpreter::v1
