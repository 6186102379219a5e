#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "connector/ThreadSafety.h"

namespace connector::interpreter::v1 {

/// The threads that run sequences of one kind. There are as many as were ever needed at a time; beyond the
/// limit, tasks wait for the others.
///
/// Threads: `post` and `isStopped` from any thread.  Locks: mutex_, a leaf; tasks run and end without it.
/// Owns: held by a shared pointer; stopped by its owner before that lets go of it.
class SequenceWorkers : public std::enable_shared_from_this<SequenceWorkers> {
public:
    /// Must not throw.
    using Task = std::function<void()>;

    static constexpr std::size_t maxThreads = 16;

    /// Takes tasks again after a stop. There is no need for it before the first.
    void start() EXCLUDES(mutex_);

    /// Refuses tasks from now on, runs those that wait, and joins the threads.
    /// Blocks: until then. A worker that calls this does not wait for itself: it ends after its task.
    void stop() EXCLUDES(mutex_);

    /// Runs `task` on a worker.
    /// Throws: std::runtime_error, "Service exists but is not running.", when stopped; std::system_error when
    /// no thread can be had. The task is not kept then.
    void post(Task task) EXCLUDES(mutex_);

    bool isStopped() const EXCLUDES(mutex_);

private:
    void startThreadLocked() REQUIRES(mutex_);
    void work() EXCLUDES(mutex_);

    mutable connector::Mutex mutex_;
    std::condition_variable wake_;
    std::deque<Task> tasks_ GUARDED_BY(mutex_);
    std::size_t idle_ GUARDED_BY(mutex_) = 0;
    bool stopped_ GUARDED_BY(mutex_) = false;
    std::vector<std::thread> threads_ GUARDED_BY(mutex_);
};

}  // namespace connector::interpreter::v1
