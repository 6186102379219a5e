#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "connector/ThreadSafety.h"

namespace gateway::bayeux {

class Session;

/// Lets sessions send what several frames have published together: while the frames that have come over a
/// socket are handled, wake-ups wait for the end of that turn.
///
/// Threads: any.  Locks: mutex_, a leaf; sessions are woken without it.
class ReadTurns {
public:
    void begin() EXCLUDES(mutex_);
    /// Wakes the sessions that have got something since, also where another turn goes on.
    void end() EXCLUDES(mutex_);

    /// Wakes the session, at the end of a turn if there is one.
    void wake(const std::shared_ptr<Session>& session) EXCLUDES(mutex_);

private:
    connector::Mutex mutex_;
    std::size_t turns_ GUARDED_BY(mutex_) = 0;
    std::vector<std::weak_ptr<Session>> waiting_ GUARDED_BY(mutex_);
};

}  // namespace gateway::bayeux
