#include "v1/BatchOrder.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <set>
#include <utility>

#include "connector/ThreadSafety.h"
#include "v1/log.h"

namespace connector::interpreter::v1 {

using connector::common::DataBuffer;
using nmutil::io::StreamTypeEnum;

namespace {

constexpr auto patience = std::chrono::seconds(2);

// The turns that this thread is delivering for.
thread_local const void* delivering = nullptr;

}  // namespace

/// The numbers given out, which count from 1.
struct BatchOrder::Turns {
    explicit Turns(CoalescingTextBuffer::Callback callback) : deliver(std::move(callback)) {}

    std::uint64_t take() EXCLUDES(mutex) {
        MutexLock lock(mutex);
        open.insert(open.end(), last + 1);
        return ++last;
    }
    void leave(std::uint64_t number) EXCLUDES(mutex) {
        {
            MutexLock lock(mutex);
            open.erase(number);
            isStuck = false;
        }
        changed.notify_all();
    }
    std::uint64_t next() EXCLUDES(mutex) {
        MutexLock lock(mutex);
        return last + 1;
    }
    void waitForThoseBefore(std::uint64_t number) EXCLUDES(mutex) {
        if (delivering == this) return;
        const auto deadline = std::chrono::steady_clock::now() + patience;
        MutexLock lock(mutex);
        while (!isStuck && !open.empty() && *open.begin() < number) {
            if (changed.wait_until(lock.native(), deadline) == std::cv_status::no_timeout) continue;
            isStuck = true;
            lock.unlock();
            asyncLog().warning("Output is slow to be published; what follows may overtake it.");
            return;
        }
    }

    const CoalescingTextBuffer::Callback deliver;
    Mutex mutex;
    std::condition_variable changed;
    std::uint64_t last GUARDED_BY(mutex) = 0;
    std::set<std::uint64_t> open GUARDED_BY(mutex);
    bool isStuck GUARDED_BY(mutex) =
        false;  ///< the wait for one has ended in vain: nobody waits until one ends
};

/// The callback. The one that the buffer keeps has no number; each copy of it has.
class BatchOrder::Turn {
public:
    explicit Turn(std::shared_ptr<Turns> turns) : turns_(std::move(turns)) {}
    Turn(const Turn& other) : turns_(other.turns_), number_(turns_->take()) {}
    Turn(Turn&& other) noexcept : turns_(std::move(other.turns_)), number_(std::exchange(other.number_, 0)) {}
    Turn& operator=(const Turn&) = delete;
    Turn& operator=(Turn&&) = delete;
    ~Turn() {
        if (number_ != 0) turns_->leave(number_);
    }

    void operator()(DataBuffer&& batch, StreamTypeEnum type) const {
        turns_->waitForThoseBefore(number_);
        const Delivering scope(turns_.get());
        turns_->deliver(std::move(batch), type);
    }

private:
    class Delivering {
    public:
        explicit Delivering(const Turns* turns) : outer_(std::exchange(delivering, turns)) {}
        ~Delivering() { delivering = outer_; }
        Delivering(const Delivering&) = delete;
        Delivering& operator=(const Delivering&) = delete;

    private:
        const void* const outer_;
    };

    std::shared_ptr<Turns> turns_;
    std::uint64_t number_ = 0;
};

BatchOrder::BatchOrder(CoalescingTextBuffer::Callback deliver)
    : turns_(std::make_shared<Turns>(std::move(deliver))) {}

BatchOrder::~BatchOrder() = default;

CoalescingTextBuffer::Callback BatchOrder::callback() const { return Turn(turns_); }

void BatchOrder::await() const { turns_->waitForThoseBefore(turns_->next()); }

}  // namespace connector::interpreter::v1
