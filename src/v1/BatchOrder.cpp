#include "v1/BatchOrder.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <set>
#include <utility>

#include "connector/ThreadSafety.h"
#include "host/Environment.h"
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
        }
        changed.notify_all();
    }
    std::uint64_t next() EXCLUDES(mutex) {
        MutexLock lock(mutex);
        return last + 1;
    }
    void waitForThoseBefore(std::uint64_t number) EXCLUDES(mutex) {
        MutexLock lock(mutex);
        while (!open.empty() && *open.begin() < number) {
            const std::uint64_t first = *open.begin();
            const auto deadline = std::chrono::steady_clock::now() + patience;
            while (open.contains(first) &&
                   changed.wait_until(lock.native(), deadline) == std::cv_status::no_timeout) {
            }
            if (open.erase(first) > 0) giveUpOn(lock);
        }
    }

    const CoalescingTextBuffer::Callback deliver;
    Mutex mutex;
    std::condition_variable changed;
    std::uint64_t last GUARDED_BY(mutex) = 0;
    std::set<std::uint64_t> open GUARDED_BY(mutex);  ///< but for those that are waited for no longer

private:
    void giveUpOn(MutexLock& lock) REQUIRES(mutex) {
        lock.unlock();
        changed.notify_all();
        asyncLog().warning("Output is slow to be published; what follows may overtake it.");
        lock.lock();
    }
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

    // The turn ends before the interpreter's lock is taken again: the next may be that of who holds it.
    void operator()(DataBuffer&& batch, StreamTypeEnum type) const {
        host::unlocked([&] {
            const End end{*turns_, number_};
            if (delivering != turns_.get()) turns_->waitForThoseBefore(number_);
            const Delivering scope(turns_.get());
            turns_->deliver(std::move(batch), type);
        });
    }

private:
    struct End {
        ~End() { turns.leave(number); }
        Turns& turns;
        const std::uint64_t number;
    };
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

void BatchOrder::await() const {
    if (delivering == turns_.get()) return;
    host::unlocked([this] { turns_->waitForThoseBefore(turns_->next()); });
}

}  // namespace connector::interpreter::v1
