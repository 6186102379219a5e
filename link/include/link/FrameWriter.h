#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "connector/ThreadSafety.h"
#include "link/Frame.h"

namespace links {

class FrameQueue;

/// Sends frames over one direction of a link. Nobody waits for the peer here: what the socket does not take
/// is queued.
///
/// **Order.** Frames go out in the order of send(). Only the pieces of a Response after its first one
/// alternate with later frames, so that a large one holds up no output; nothing that was sent after a
/// Response comes before its first piece, and a Response never overtakes what was sent before it. Two
/// Responses under way must not have one id.
///
/// **Bounds.** A frame that may be lost is dropped when 64 MiB of such frames are queued; more than 64 MiB
/// that must not be lost break the link. Requests, Responses and Messages with an id do not count: the flow
/// of requests bounds them.
///
/// Threads: every operation from any thread; destroyed when nobody is inside one.
/// Locks: mutex_, a leaf, held over a system call that does not wait. Callbacks run with no lock held, on the
/// thread that called send() or sendMore(); one may still be running when close() returns on another.
class FrameWriter {
public:
    /// Borrows the socket. Every call on it is without waiting, whatever its mode.
    ///
    /// `waitForRoom` is called when frames are left over because the socket is full: the owner waits until it
    /// takes more and then calls sendMore(), once for each call of `waitForRoom`; it may do so at once.
    /// `broken` is called once, when the socket is broken or too much is queued. Everything is swallowed from
    /// then on.
    FrameWriter(int socket, std::function<void()> waitForRoom, std::function<void()> broken);
    ~FrameWriter();
    FrameWriter(const FrameWriter&) = delete;
    FrameWriter& operator=(const FrameWriter&) = delete;

    /// Sends at once when nothing is queued, else queues. False: the frame was dropped, since it may be lost,
    /// or the link is broken or closed. Throws: std::length_error (a head above maxHeadBytes or a body above
    /// maxBodyBytes; nothing was sent). A lack of memory breaks the link.
    bool send(Frame frame) CONNECTOR_EXCLUDES(mutex_);

    /// Sends what is queued, up to 64 frames a system call. Ends after about 1 MiB, and asks for another call
    /// by `waitForRoom`, so that one busy link does not keep the caller's thread.
    void sendMore() CONNECTOR_EXCLUDES(mutex_);

    /// What queued frames cost in memory, but for Requests and Responses.
    std::size_t queuedBytes() const { return queuedBytes_.load(std::memory_order_relaxed); }

    /// Waits until queuedBytes() is less than `bytes`, or the link is broken or closed, for `limit` at most;
    /// whether it is. For whoever makes frames that may be lost. Blocks: must not be called while holding the
    /// interpreter's lock, nor on the thread that calls sendMore().
    bool waitUntilBelow(std::size_t bytes, std::chrono::milliseconds limit) CONNECTOR_EXCLUDES(mutex_);

    /// Drops what is queued; everything is swallowed from now on, and no callback follows. Does not close the
    /// socket.
    void close() CONNECTOR_EXCLUDES(mutex_);

private:
    enum class After { Nothing, WaitForRoom, Broken };

    using Done = std::vector<std::string>;  // large bodies, to be freed with no lock held

    After enqueueLocked(Frame&& frame) CONNECTOR_REQUIRES(mutex_);
    After sendLocked(Frame&& frame, Done& done) CONNECTOR_REQUIRES(mutex_);
    After drainLocked(Done& done) CONNECTOR_REQUIRES(mutex_);
    After breakLocked() CONNECTOR_REQUIRES(mutex_);
    void closeLocked() CONNECTOR_REQUIRES(mutex_);
    void noteQueuedLocked() CONNECTOR_REQUIRES(mutex_);
    bool callBack(After after) CONNECTOR_EXCLUDES(mutex_);

    const int socket_;
    const std::function<void()> waitForRoom_;
    const std::function<void()> broken_;

    std::atomic<std::size_t> queuedBytes_{0};

    connector::Mutex mutex_;
    std::condition_variable changed_;  // less is queued, or the writer has closed
    std::unique_ptr<FrameQueue> queue_ CONNECTOR_GUARDED_BY(mutex_);
    std::size_t waiting_ CONNECTOR_GUARDED_BY(mutex_) = 0;  // threads in waitUntilBelow()
    bool isWaitingForRoom_ CONNECTOR_GUARDED_BY(mutex_) =
        false;  // `waitForRoom` was called, sendMore() not yet
    bool isClosed_ CONNECTOR_GUARDED_BY(mutex_) = false;
};

}  // namespace links
