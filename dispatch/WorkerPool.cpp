#include "dispatch/WorkerPool.h"

#include <system_error>
#include <utility>

namespace dispatch {

using connector::MutexLock;

WorkerPool::WorkerPool(std::size_t threads, std::size_t queueLength, std::size_t queueBytes)
    : mostThreads_(threads), capacity_(threads + queueLength), queueBytes_(queueBytes) {}

WorkerPool::~WorkerPool() {
    close();
    std::vector<std::thread> threads;
    {
        const MutexLock lock(mutex_);
        threads.swap(threads_);
    }
    for (auto& thread : threads) thread.join();
}

WorkerPool::Outcome WorkerPool::submit(Task task) {
    {
        const MutexLock lock(mutex_);
        if (isClosed_) return Outcome::Closed;
        // A thread that has not taken its task yet must not make the queue look full.
        if (queue_.size() + running_ >= capacity_ || task.bytes > queueBytes_ - bytes_) return Outcome::Full;
        if (!hasThreadsLocked()) return Outcome::Full;
        bytes_ += task.bytes;
        queue_.push_back(std::move(task));
        wakeLocked();
    }
    return Outcome::Taken;
}

// Starts one where all are busy.
bool WorkerPool::hasThreadsLocked() {
    if (!waiting_.empty() || threads_.size() == mostThreads_) return true;
    try {
        threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        return !threads_.empty();
    }
    return true;
}

void WorkerPool::close() {
    std::deque<Task> refused;
    {
        const MutexLock lock(mutex_);
        isClosed_ = true;
        refused.swap(queue_);
        bytes_ = 0;
        if (running_ == 0) idle_.notify_all();
        while (!waiting_.empty()) wakeLocked();
    }
    for (const auto& task : refused) task.refuse();
}

bool WorkerPool::waitUntilIdle(std::chrono::milliseconds limit) {
    MutexLock lock(mutex_);
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!queue_.empty() || running_ > 0) {
        if (idle_.wait_until(lock.native(), deadline) == std::cv_status::timeout) {
            return queue_.empty() && running_ == 0;
        }
    }
    return true;
}

std::size_t WorkerPool::queued() const {
    const MutexLock lock(mutex_);
    return queue_.size();
}

std::size_t WorkerPool::running() const {
    const MutexLock lock(mutex_);
    return running_;
}

void WorkerPool::waitLocked(MutexLock& lock) {
    Idle self;
    waiting_.push_back(&self);
    while (!self.isWoken) self.wake.wait(lock.native());
}

void WorkerPool::wakeLocked() {
    if (waiting_.empty()) return;
    Idle& idle = *waiting_.back();
    waiting_.pop_back();
    idle.isWoken = true;
    idle.wake.notify_one();  // under the lock, because it is gone as soon as its thread goes on
}

void WorkerPool::work() {
    MutexLock lock(mutex_);
    while (true) {
        while (queue_.empty() && !isClosed_) waitLocked(lock);
        if (queue_.empty()) return;
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

}  // namespace dispatch
