#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <limits>
#include <thread>
#include <vector>

#include "connector/ThreadSafety.h"

namespace dispatch {

/// Threads that run tasks in the order in which they come, with a bounded queue in front. There are as many
/// as were ever needed at a time, up to a limit.
///
///     submitted --+-- Full or Closed: nothing is called
///                 '-- queued --+-- run, on a thread of the pool
///                              '-- refused, by `close`, on its thread
///
/// Threads: every operation from any thread but those of the pool, which may submit.
/// Locks: mutex_, not held while a task runs or is refused.
class WorkerPool {
public:
    /// One of its functions is called, once. They throw nothing.
    struct Task {
        std::function<void()> run;
        std::function<void()> refuse;
        std::size_t bytes = 0;  ///< that it holds while it is queued
    };
    enum class Outcome { Taken, Full, Closed };

    WorkerPool(std::size_t threads, std::size_t queueLength,
               std::size_t queueBytes = std::numeric_limits<std::size_t>::max());
    /// Closes, and waits for what runs.
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Full: as many tasks wait as may, beside one for each thread, or they hold too many bytes; or there is
    /// no thread, and none can be had. Blocks: never.
    Outcome submit(Task task) EXCLUDES(mutex_);

    /// Refuses what is queued and what comes later.
    void close() EXCLUDES(mutex_);

    /// Waits until nothing is queued and nothing runs; false when it has not come to that in time.
    bool waitUntilIdle(std::chrono::milliseconds limit) EXCLUDES(mutex_);

    std::size_t queued() const EXCLUDES(mutex_);
    std::size_t running() const EXCLUDES(mutex_);

private:
    /// A thread that waits for a task.
    struct Idle {
        std::condition_variable wake;
        bool isWoken = false;
    };

    bool hasThreadsLocked() REQUIRES(mutex_);
    void work() EXCLUDES(mutex_);
    void waitLocked(connector::MutexLock& lock) REQUIRES(mutex_);
    void wakeLocked() REQUIRES(mutex_);

    const std::size_t mostThreads_;
    const std::size_t capacity_;  ///< tasks queued and running
    const std::size_t queueBytes_;

    mutable connector::Mutex mutex_;
    std::condition_variable idle_;
    std::vector<Idle*> waiting_
        GUARDED_BY(mutex_);  ///< the one that began last is woken: its caches are warm
    std::deque<Task> queue_ GUARDED_BY(mutex_);
    std::size_t bytes_ GUARDED_BY(mutex_) = 0;  ///< of the queue
    std::size_t running_ GUARDED_BY(mutex_) = 0;
    bool isClosed_ GUARDED_BY(mutex_) = false;

    std::vector<std::thread> threads_ GUARDED_BY(mutex_);
};

}  // namespace dispatch
