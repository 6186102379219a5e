#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "connector/ThreadSafety.h"

namespace jupyter {

/// Tasks on their way to the one thread that runs them, and the descriptor that wakes it.
///
/// Threads: every operation from any thread; `take` and `descriptor` for the one that runs them.
/// Locks: mutex_, a leaf.
class Tasks {
public:
    using Task = std::function<void()>;
    using Time = std::chrono::steady_clock::time_point;

    /// Throws: std::system_error.
    Tasks();
    ~Tasks();
    Tasks(const Tasks&) = delete;
    Tasks& operator=(const Tasks&) = delete;

    void add(Task task) CONNECTOR_EXCLUDES(mutex_);
    void addAt(Time time, Task task) CONNECTOR_EXCLUDES(mutex_);
    /// Threads: any; in signal handlers, too.
    void raise(int signal);
    /// No tasks are taken from now on, and those that wait are dropped.
    void close() CONNECTOR_EXCLUDES(mutex_);

    /// Readable when there may be something to take.
    int descriptor() const { return event_; }
    /// Waits until it is, for `limit` at most.
    void wait(std::chrono::milliseconds limit) const;
    struct Taken {
        std::vector<Task> tasks;    ///< in the order in which they came, or are due
        std::uint64_t signals = 0;  ///< as bits
        std::optional<Time> next;   ///< when the next one is due
        bool isClosed = false;
    };
    Taken take(Time now) CONNECTOR_EXCLUDES(mutex_);

private:
    void notify();

    const int event_;
    std::atomic<std::uint64_t> signals_{0};
    std::atomic<bool> isNotified_{false};

    connector::Mutex mutex_;
    std::vector<Task> tasks_ CONNECTOR_GUARDED_BY(mutex_);
    std::multimap<Time, Task> later_ CONNECTOR_GUARDED_BY(mutex_);
    bool isClosed_ CONNECTOR_GUARDED_BY(mutex_) = false;
};

}  // namespace jupyter
