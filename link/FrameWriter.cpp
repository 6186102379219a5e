#include "link/FrameWriter.h"

#include <cerrno>
#include <new>
#include <span>
#include <stdexcept>
#include <utility>

#include <sys/socket.h>

#include "FrameQueue.h"

namespace links {

namespace {

constexpr std::size_t maxQueuedBytes = std::size_t{64} << 20;
constexpr std::size_t turnBytes = std::size_t{1} << 20;

// Bytes that were sent; none when the socket is full; -1 when it is broken.
ssize_t sendNow(int socket, std::span<iovec> parts) {
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    while (true) {
        const ssize_t sent = ::sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) return sent;
        if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
        if (errno != EINTR) return -1;
    }
}

std::size_t sizeOf(std::span<const iovec> parts) {
    std::size_t size = 0;
    for (const iovec& part : parts) size += part.iov_len;
    return size;
}

}  // namespace

FrameWriter::FrameWriter(int socket, std::function<void()> waitForRoom, std::function<void()> broken)
    : socket_(socket),
      waitForRoom_(std::move(waitForRoom)),
      broken_(std::move(broken)),
      queue_(std::make_unique<FrameQueue>()) {}

FrameWriter::~FrameWriter() = default;

bool FrameWriter::send(Frame frame) {
    if (frame.head.size() > maxHeadBytes) throw std::length_error("the head of a frame is too long");
    if (frame.body.size() > maxBodyBytes) throw std::length_error("the body of a frame is too long");
    Done done;
    connector::MutexLock lock(mutex_);
    if (isClosed_) return false;
    if (frame.mayBeLost && queue_->bytes(FrameClass::MayBeLost) > maxQueuedBytes) return false;
    After after = After::Nothing;
    try {
        after = isWaitingForRoom_ ? enqueueLocked(std::move(frame)) : sendLocked(std::move(frame), done);
    } catch (const std::bad_alloc&) {
        // Half of the frame may have been sent.
        after = breakLocked();
    }
    lock.unlock();
    return callBack(after);
}

FrameWriter::After FrameWriter::enqueueLocked(Frame&& frame) {
    queue_->push(std::move(frame));
    noteQueuedLocked();
    return queue_->bytes(FrameClass::Kept) > maxQueuedBytes ? breakLocked() : After::Nothing;
}

FrameWriter::After FrameWriter::sendLocked(Frame&& frame, Done& done) {
    std::size_t sent = 0;
    if (frame.body.size() <= maxPieceBytes) {
        // What nearly always happens: the queue is not touched.
        FrameHeader::Bytes header = FrameHeader{.kind = frame.kind,
                                                .mayBeLost = frame.mayBeLost,
                                                .headBytes = frame.head.size(),
                                                .bodyBytes = frame.body.size(),
                                                .id = frame.id}
                                        .encode();
        std::array<iovec, 3> parts{{{header.data(), header.size()},
                                    {frame.head.data(), frame.head.size()},
                                    {frame.body.data(), frame.body.size()}}};
        const ssize_t result = sendNow(socket_, parts);
        if (result < 0) return breakLocked();
        sent = static_cast<std::size_t>(result);
        if (sent == sizeOf(parts)) return After::Nothing;
    }
    queue_->push(std::move(frame));
    if (sent > 0) {
        FrameQueue::Parts parts;
        queue_->next(parts);
        queue_->consume(sent, done);
    }
    return drainLocked(done);
}

void FrameWriter::sendMore() {
    Done done;
    connector::MutexLock lock(mutex_);
    if (isClosed_) return;
    isWaitingForRoom_ = false;
    After after = After::Nothing;
    try {
        after = drainLocked(done);
    } catch (const std::bad_alloc&) {
        after = breakLocked();
    }
    lock.unlock();
    callBack(after);
}

FrameWriter::After FrameWriter::drainLocked(Done& done) {
    std::size_t total = 0;
    while (!queue_->isEmpty()) {
        FrameQueue::Parts storage;
        const auto parts = queue_->next(storage);
        const std::size_t size = sizeOf(parts);
        const ssize_t sent = total < turnBytes ? sendNow(socket_, parts) : 0;
        if (sent < 0) return breakLocked();
        queue_->consume(static_cast<std::size_t>(sent), done);
        total += static_cast<std::size_t>(sent);
        if (static_cast<std::size_t>(sent) < size) {
            isWaitingForRoom_ = true;
            noteQueuedLocked();
            return After::WaitForRoom;
        }
    }
    noteQueuedLocked();
    return After::Nothing;
}

FrameWriter::After FrameWriter::breakLocked() {
    closeLocked();
    return After::Broken;
}

void FrameWriter::close() {
    connector::MutexLock lock(mutex_);
    closeLocked();
}

void FrameWriter::closeLocked() {
    isClosed_ = true;
    queue_->clear();
    noteQueuedLocked();
}

void FrameWriter::noteQueuedLocked() {
    queuedBytes_.store(queue_->bytes(FrameClass::Kept) + queue_->bytes(FrameClass::MayBeLost),
                       std::memory_order_relaxed);
    if (waiting_ > 0) changed_.notify_all();
}

bool FrameWriter::callBack(After after) {
    if (after == After::WaitForRoom) waitForRoom_();
    if (after == After::Broken) broken_();
    return after != After::Broken;
}

bool FrameWriter::waitUntilBelow(std::size_t bytes, std::chrono::milliseconds limit) {
    connector::MutexLock lock(mutex_);
    ++waiting_;
    const bool isBelow = changed_.wait_for(lock.native(), limit, [&]() CONNECTOR_REQUIRES(mutex_) {
        return isClosed_ || queuedBytes() < bytes;
    });
    --waiting_;
    return isBelow;
}

}  // namespace links
