#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "connector/ThreadSafety.h"
#include "connector/common/RequestOrigin.h"
#include "messages/ClientSession.h"

namespace messages {

/// Counts of one service.
struct MessageCounters {
    std::atomic<std::uint64_t> droppedMessages{0};
    std::atomic<std::uint64_t> droppedBytes{0};
    std::atomic<std::uint64_t> framesBuilt{0};
    std::atomic<std::uint64_t> messagesPublished{0};
};

/// The frames on their way to one client, and what happens when there are too many: see ClientSession.
///
/// The limit counts the texts of frames, not the notices of losses: there is at most one for each loss class
/// between two frames. A frame that is larger than the limit finds room in an empty queue.
///
/// It is the pace of its client: behind from an eighth of the limit until it is down to a sixteenth, as long
/// as something is taken, or the client is seen to read, within SessionOptions::ownerWait. So whoever waits
/// for it begins with seven eighths left, for what is on its way already.
///
/// Threads: any.  Locks: mutex_, a leaf; the wake-up runs without it. `isBehind` takes none, since who prints
/// asks after every piece; a wait releases it, and whoever waits holds no other lock: its client is served by
/// threads that take the locks of the message service.
class OutgoingQueue : public connector::common::ClientPace {
public:
    using Clock = std::chrono::steady_clock;
    using Now = std::function<Clock::time_point()>;

    OutgoingQueue(const SessionOptions& options, Now now, std::shared_ptr<MessageCounters> counters);

    using WakeUp = std::shared_ptr<const std::function<void()>>;
    using Pace = connector::common::ClientPace;

    /// `owner`: of the request that has caused the frame; may be null. When it is this one, the frame is lost
    /// after those of others. False when closed, also when that is because of this frame.  Blocks: never.
    bool push(const std::shared_ptr<const MessageFrame>& frame, const Pace* owner = nullptr)
        CONNECTOR_EXCLUDES(mutex_);
    /// The same for a caller that holds a lock: what has to be called without it is appended to `wakeUps`.
    bool push(const std::shared_ptr<const MessageFrame>& frame, const Pace* owner,
              std::vector<WakeUp>& wakeUps) CONNECTOR_EXCLUDES(mutex_);
    static void call(const WakeUp& wakeUp);
    TakenFrames take(std::size_t maxBytes, std::chrono::milliseconds timeout) CONNECTOR_EXCLUDES(mutex_);
    void setWakeUp(std::function<void()> wakeUp) CONNECTOR_EXCLUDES(mutex_);

    /// The client reads what was taken.
    void noteReading() { lastRead_ = now_(); }
    bool isBehind() const override;
    /// Ends early when the session closes. That nothing is taken any more is noticed at the end of `limit`.
    void waitUntilCaughtUp(std::chrono::milliseconds limit) override CONNECTOR_EXCLUDES(mutex_);

    /// Forgets what nobody can take any more.
    void discard() CONNECTOR_EXCLUDES(mutex_);
    void close(const std::string& reason) CONNECTOR_EXCLUDES(mutex_);
    /// Closes when the queue has been full for too long. True when closed.
    bool closeWhenOverdue() CONNECTOR_EXCLUDES(mutex_);
    bool isClosed() const CONNECTOR_EXCLUDES(mutex_);
    std::string closeReason() const CONNECTOR_EXCLUDES(mutex_);
    std::size_t queuedBytes() const CONNECTOR_EXCLUDES(mutex_);

private:
    using Frame = std::shared_ptr<const MessageFrame>;
    struct Loss {
        std::string lossClass;
        std::uint64_t messages = 0;
        std::uint64_t bytes = 0;  // of data
        std::uint64_t from = 0;   // the lowest number of the messages; 0 when they have none
        std::uint64_t to = 0;

        void add(const Loss& other);
    };
    struct Entry {
        Frame frame;                 // or else
        std::unique_ptr<Loss> loss;  // what was lost here
        bool isOwn = false;          // of the client's own requests
    };
    using Entries = std::list<Entry>;

    static Frame noticeOf(const Loss& loss);

    void addLocked(const Frame& frame, bool isOwn) CONNECTOR_REQUIRES(mutex_);
    void dropOldestLocked() CONNECTOR_REQUIRES(mutex_);
    void noteLossLocked(Entries::iterator lost, const MessageFrame& frame) CONNECTOR_REQUIRES(mutex_);
    void updateBehindLocked() CONNECTOR_REQUIRES(mutex_);
    void removeFirstLocked() CONNECTOR_REQUIRES(mutex_);
    bool isOverdueLocked() const CONNECTOR_REQUIRES(mutex_);
    bool isIdleLocked() const CONNECTOR_REQUIRES(mutex_) { return entries_.empty() && !closeReason_; }

    // Fixed after construction.
    const std::size_t limit_;
    const std::chrono::milliseconds fullLimit_;
    const std::chrono::milliseconds ownerWait_;
    const Now now_;
    const std::shared_ptr<MessageCounters> counters_;

    // Changed under the mutex, read without.
    std::atomic<bool> isMuchQueued_{false};
    std::atomic<Clock::time_point> lastRead_{};  // or taken, or when what is queued began to wait

    mutable connector::Mutex mutex_;
    std::condition_variable changed_;
    std::condition_variable caughtUp_;
    Entries entries_ CONNECTOR_GUARDED_BY(mutex_);
    // Those of the frames that may be lost: what others have caused, and the client's own.
    std::array<std::deque<Entries::iterator>, 2> droppable_ CONNECTOR_GUARDED_BY(mutex_);
    std::size_t queuedBytes_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::size_t keptBytes_ CONNECTOR_GUARDED_BY(mutex_) = 0;  // of frames that must not be lost
    std::optional<Clock::time_point> fullSince_ CONNECTOR_GUARDED_BY(mutex_);
    std::optional<std::string> closeReason_ CONNECTOR_GUARDED_BY(mutex_);  // none while open
    WakeUp wakeUp_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace messages
