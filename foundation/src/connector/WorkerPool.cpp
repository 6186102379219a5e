#include "connector/WorkerPool.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "connector/Semaphore.h"
#include "connector/ThreadSafety.h"
#include "connector/joinLater.h"

namespace connector {

class WorkerPool::State : public std::enable_shared_from_this<State> {
public:
    State(std::size_t threads, std::size_t queueLength, std::size_t queueBytes)
        : mostThreads_(threads), capacity_(threads + queueLength), queueBytes_(queueBytes) {}

    Outcome submit(Task task) CONNECTOR_EXCLUDES(mutex_);
    void refuseTasks(bool alsoQueued) CONNECTOR_EXCLUDES(mutex_);
    void join() CONNECTOR_EXCLUDES(mutex_);
    void reopen() CONNECTOR_EXCLUDES(mutex_);
    bool waitUntilIdle(std::chrono::milliseconds limit) CONNECTOR_EXCLUDES(mutex_);

    bool isClosed() const CONNECTOR_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return isClosed_;
    }
    std::size_t queued() const CONNECTOR_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return queue_.size();
    }
    std::size_t running() const CONNECTOR_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return running_;
    }

private:
    bool hasThreadsLocked() CONNECTOR_REQUIRES(mutex_);
    void work(std::uint64_t round) CONNECTOR_EXCLUDES(mutex_);
    Semaphore* takeWaitingLocked() CONNECTOR_REQUIRES(mutex_);

    const std::size_t mostThreads_;
    const std::size_t capacity_;  ///< tasks queued and running
    const std::size_t queueBytes_;

    mutable Mutex mutex_;
    std::condition_variable idle_;
    /// What idle threads sleep on. Whoever takes one out posts it. The one that began last is woken: its
    /// caches are warm.
    std::vector<Semaphore*> waiting_ CONNECTOR_GUARDED_BY(mutex_);
    std::deque<Task> queue_ CONNECTOR_GUARDED_BY(mutex_);
    std::size_t bytes_ CONNECTOR_GUARDED_BY(mutex_) = 0;  ///< of the queue
    std::size_t running_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    bool isClosed_ CONNECTOR_GUARDED_BY(mutex_) = false;
    std::uint64_t round_ CONNECTOR_GUARDED_BY(mutex_) = 0;  ///< how often it has been reopened

    std::vector<std::thread> threads_ CONNECTOR_GUARDED_BY(mutex_);
};

WorkerPool::Outcome WorkerPool::State::submit(Task task) {
    Semaphore* waiting = nullptr;
    {
        const MutexLock lock(mutex_);
        if (isClosed_) return Outcome::Closed;
        // A thread that has not taken its task yet must not make the queue look full.
        if (queue_.size() + running_ >= capacity_ || task.bytes > queueBytes_ - bytes_) return Outcome::Full;
        if (!hasThreadsLocked()) return Outcome::Full;
        bytes_ += task.bytes;
        queue_.push_back(std::move(task));
        waiting = takeWaitingLocked();
    }
    if (waiting != nullptr) waiting->post();  // without the lock, which the woken thread takes first
    return Outcome::Accepted;
}

// Starts one where all are busy.
bool WorkerPool::State::hasThreadsLocked() {
    if (!waiting_.empty() || threads_.size() == mostThreads_) return true;
    try {
        threads_.emplace_back([self = shared_from_this(), round = round_] { self->work(round); });
    } catch (const std::system_error&) {
        return !threads_.empty();
    }
    return true;
}

void WorkerPool::State::refuseTasks(bool alsoQueued) {
    std::deque<Task> refused;
    {
        const MutexLock lock(mutex_);
        isClosed_ = true;
        if (alsoQueued) {
            refused.swap(queue_);
            bytes_ = 0;
        }
        if (running_ == 0 && queue_.empty()) idle_.notify_all();
        while (Semaphore* const waiting = takeWaitingLocked()) waiting->post();
    }
    for (const auto& task : refused) {
        if (task.refuse) task.refuse();
    }
}

void WorkerPool::State::join() {
    std::vector<std::thread> threads;
    {
        const MutexLock lock(mutex_);
        threads.swap(threads_);
    }
    for (auto& thread : threads) {
        if (thread.get_id() == std::this_thread::get_id()) {
            joinLater(std::move(thread), weak_from_this());
        } else {
            thread.join();
        }
    }
}

void WorkerPool::State::reopen() {
    const MutexLock lock(mutex_);
    if (!std::exchange(isClosed_, false)) return;
    ++round_;
    if (!queue_.empty()) hasThreadsLocked();  // those of the round before leave what they have not begun
}

bool WorkerPool::State::waitUntilIdle(std::chrono::milliseconds limit) {
    MutexLock lock(mutex_);
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!queue_.empty() || running_ > 0) {
        if (idle_.wait_until(lock.native(), deadline) == std::cv_status::timeout) {
            return queue_.empty() && running_ == 0;
        }
    }
    return true;
}

Semaphore* WorkerPool::State::takeWaitingLocked() {
    if (waiting_.empty()) return nullptr;
    Semaphore* const waiting = waiting_.back();
    waiting_.pop_back();
    return waiting;
}

void WorkerPool::State::work(std::uint64_t round) {
    Semaphore wake;
    MutexLock lock(mutex_);
    while (true) {
        while (queue_.empty() && !isClosed_ && round == round_) {
            waiting_.push_back(&wake);
            lock.unlock();
            wake.wait();
            lock.lock();
        }
        // A thread that `finish` could not join ends, even if the pool was reopened meanwhile.
        if (queue_.empty() || round != round_) return;
        {
            const Task task = std::move(queue_.front());
            queue_.pop_front();
            bytes_ -= task.bytes;
            ++running_;
            lock.unlock();
            task.run();
        }  // what the task holds goes before it counts as done
        lock.lock();
        if (--running_ == 0 && queue_.empty()) idle_.notify_all();
    }
}

WorkerPool::WorkerPool(std::size_t threads, std::size_t queueLength, std::size_t queueBytes)
    : state_(std::make_shared<State>(threads, queueLength, queueBytes)) {}

WorkerPool::~WorkerPool() {
    close();
    state_->join();
}

WorkerPool::Outcome WorkerPool::submit(Task task) { return state_->submit(std::move(task)); }
void WorkerPool::close() { state_->refuseTasks(true); }
void WorkerPool::finish() {
    state_->refuseTasks(false);
    state_->join();
}
void WorkerPool::reopen() { state_->reopen(); }
bool WorkerPool::isClosed() const { return state_->isClosed(); }
bool WorkerPool::waitUntilIdle(std::chrono::milliseconds limit) { return state_->waitUntilIdle(limit); }
std::size_t WorkerPool::queued() const { return state_->queued(); }
std::size_t WorkerPool::running() const { return state_->running(); }

}  // namespace connector
