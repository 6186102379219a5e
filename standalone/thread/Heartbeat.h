#pragma once

#include <chrono>
#include <condition_variable>
#include <thread>

#include "connector/ThreadSafety.h"

namespace standalone {

/// Tells whether native code keeps the interpreter's lock, without disturbing it: a signal would break into
/// system calls of the user's code. A thread of its own waits for the lock instead, from the first time that
/// somebody asks. Running Python code gives the lock away within milliseconds, as does whatever waits.
///
/// Threads: `deafFor` any, one at a time; `stop` one that does not hold the interpreter's lock.
/// Locks: mutex_, a leaf.
class Heartbeat {
public:
    Heartbeat() = default;
    /// Call `stop` first.
    ~Heartbeat() = default;
    Heartbeat(const Heartbeat&) = delete;
    Heartbeat& operator=(const Heartbeat&) = delete;

    /// For how long the lock has not been had, as of the call before. Call it only while CPython lives.
    /// Blocks: no.
    std::chrono::milliseconds deafFor() CONNECTOR_EXCLUDES(mutex_);

    /// Blocks: until the lock is had, if it is waited for.
    void stop() CONNECTOR_EXCLUDES(mutex_);

private:
    using Clock = std::chrono::steady_clock;

    void run() CONNECTOR_EXCLUDES(mutex_);

    connector::Mutex mutex_;
    std::condition_variable asked_;
    bool isAsked_ CONNECTOR_GUARDED_BY(mutex_) = false;
    bool isStopped_ CONNECTOR_GUARDED_BY(mutex_) = false;
    Clock::time_point since_ CONNECTOR_GUARDED_BY(mutex_){};
    std::thread thread_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace standalone
