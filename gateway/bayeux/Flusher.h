#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "connector/ThreadSafety.h"

namespace boost::asio {
class io_context;
}

namespace gateway::bayeux {

class Session;

/// Lets sessions that have got messages send them together, behind the frames that have come meanwhile: a
/// burst of publishes then costs each subscriber one frame, and not one for each message. Waits no longer
/// than half a millisecond, and hardly at all when nothing comes.
///
/// Threads: any.  Locks: mutex_, a leaf; sessions are woken without it.
class Flusher : public std::enable_shared_from_this<Flusher> {
public:
    explicit Flusher(boost::asio::io_context& context) : context_(context) {}

    /// A frame of a client has come.
    void received() { received_.fetch_add(1, std::memory_order_relaxed); }
    /// Wakes the session soon. It is added once until then.
    void add(const std::shared_ptr<Session>& session) EXCLUDES(mutex_);

private:
    using Clock = std::chrono::steady_clock;

    void post();
    void turn() EXCLUDES(mutex_);
    bool isDueLocked() REQUIRES(mutex_);

    boost::asio::io_context& context_;
    std::atomic<unsigned> received_{0};

    connector::Mutex mutex_;
    std::vector<std::weak_ptr<Session>> sessions_ GUARDED_BY(mutex_);
    Clock::time_point begin_ GUARDED_BY(mutex_);
    unsigned seen_ GUARDED_BY(mutex_) = 0;  ///< of received_, at the last turn
    int quietTurns_ GUARDED_BY(mutex_) = 0;
};

}  // namespace gateway::bayeux
