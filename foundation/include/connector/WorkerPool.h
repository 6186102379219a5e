#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>

namespace connector {

/// Threads that run tasks in the order in which they come, with a bounded queue in front. There are as many
/// as were ever needed at a time, up to a limit. All are joined.
///
///     submitted --+-- Full or Closed: nothing is called
///                 '-- queued --+-- run, on a thread of the pool
///                              '-- refused, by `close`, on its thread
///
/// Threads: every operation from any thread; `waitUntilIdle` not from those of the pool.
/// Locks: a leaf, not held while a task runs, is refused or destroyed.
class WorkerPool {
public:
    /// One of its functions is called, once. They throw nothing.
    struct Task {
        std::function<void()> run;
        std::function<void()> refuse{};  ///< may be null
        std::size_t bytes = 0;           ///< that it holds while it is queued
    };
    enum class Outcome { Accepted, Full, Closed };

    static constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max() / 2;

    WorkerPool(std::size_t threads, std::size_t queueLength, std::size_t queueBytes = unlimited);
    /// Closes, and waits for what runs. A task of the pool may destroy it: then its thread ends after it.
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Full: as many tasks wait as may, beside one for each thread, or they hold too many bytes; or there is
    /// no thread and none can be started. Blocks: never.
    Outcome submit(Task task);

    /// Refuses what is queued and what comes later.
    void close();
    /// Refuses what comes later, runs what is queued, and joins the threads. A task of the pool that calls
    /// this does not wait for its own thread, which ends after it.  Blocks: until then.
    void finish();
    /// Accepts tasks again after `finish`.
    void reopen();
    bool isClosed() const;

    /// Waits until nothing is queued and nothing runs; false when that has not come about in time.
    bool waitUntilIdle(std::chrono::milliseconds limit);

    std::size_t queued() const;
    std::size_t running() const;

private:
    class State;
    const std::shared_ptr<State> state_;  ///< also of the threads, one of which may outlive the pool
};

}  // namespace connector
