#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "connector/ThreadSafety.h"

namespace gateway::bayeux {

/// What works when it is woken.  Threads: any.
class Wakeable {
public:
    virtual ~Wakeable() = default;
    /// There may be something to send, or something may be due. Many calls make one turn of work.
    virtual void wake() = 0;
};

/// Lets sessions send together what several frames have published: while the frames that one read of a
/// socket has brought are handled, wake-ups wait for the end of that turn.
///
/// Threads: any.  Locks: mutex_, a leaf; sessions are woken without it.
class ReadTurns {
public:
    void begin() CONNECTOR_EXCLUDES(mutex_) {
        connector::MutexLock lock(mutex_);
        ++turns_;
    }
    /// Wakes those that wait, also when another turn goes on.
    void end() CONNECTOR_EXCLUDES(mutex_) {
        {
            connector::MutexLock lock(mutex_);
            --turns_;
        }
        wakeAll();
    }
    /// Wakes those that wait, in the midst of turns.
    void wakeAll() CONNECTOR_EXCLUDES(mutex_) {
        std::vector<std::weak_ptr<Wakeable>> woken;
        {
            connector::MutexLock lock(mutex_);
            woken.swap(waiting_);
        }
        for (const auto& weak : woken) {
            if (const auto session = weak.lock()) session->wake();
        }
    }
    /// Wakes the session, at the end of a turn if there is one.
    void wake(const std::shared_ptr<Wakeable>& session) CONNECTOR_EXCLUDES(mutex_) {
        {
            connector::MutexLock lock(mutex_);
            if (turns_ > 0) return waiting_.push_back(session);
        }
        session->wake();
    }

private:
    connector::Mutex mutex_;
    std::size_t turns_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::vector<std::weak_ptr<Wakeable>> waiting_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace gateway::bayeux
