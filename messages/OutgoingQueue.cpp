#include "OutgoingQueue.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "HandlerGate.h"
#include "connector/detail/SharedFutureState.h"
#include "connector/json/ObjectBuilder.h"
#include "connector/wireWords.h"

namespace messages {

using connector::MutexLock;

namespace {

constexpr const char* fullReason = "its queue is full of messages that must not be lost";
constexpr const char* overdueReason = "its queue has been full for too long";

}  // namespace

OutgoingQueue::OutgoingQueue(const SessionOptions& options, Now now,
                             std::shared_ptr<MessageCounters> counters)
    : limit_(options.queueBytes),
      fullLimit_(options.fullLimit),
      now_(std::move(now)),
      counters_(std::move(counters)) {}

bool OutgoingQueue::push(const Frame& frame) {
    std::vector<WakeUp> wakeUps;
    const bool isOpen = push(frame, wakeUps);
    for (const WakeUp& wakeUp : wakeUps) call(wakeUp);
    return isOpen;
}

bool OutgoingQueue::push(const Frame& frame, std::vector<WakeUp>& wakeUps) {
    bool isOpen = false;
    {
        MutexLock lock(mutex_);
        if (closeReason_) return false;
        const bool wasEmpty = entries_.empty();
        addLocked(frame);
        isOpen = !closeReason_;
        if (isOpen && !wasEmpty) return true;
        wakeUps.push_back(isOpen ? wakeUp_ : std::move(wakeUp_));
    }
    changed_.notify_all();
    return isOpen;
}

void OutgoingQueue::addLocked(const Frame& frame) {
    const std::size_t size = frame->text().size();
    const std::size_t room = std::max(limit_, size);  // an empty queue takes any frame
    const bool mayBeLost = !frame->lossClass().empty();
    if (!mayBeLost && keptBytes_ + size > room) {
        closeReason_ = fullReason;
        return;
    }
    if (queuedBytes_ + size > room) {
        if (isOverdueLocked()) {
            closeReason_ = overdueReason;
            return;
        }
        if (!fullSince_) fullSince_ = now_();
    }
    entries_.push_back({frame, nullptr});
    queuedBytes_ += size;
    if (mayBeLost) {
        droppable_.push_back(std::prev(entries_.end()));
    } else {
        keptBytes_ += size;
    }
    // What must not be lost may be above the limit alone; then the new frame is lost itself.
    while (queuedBytes_ > room && !droppable_.empty()) dropOldestLocked();
}

void OutgoingQueue::dropOldestLocked() {
    const auto lost = droppable_.front();
    droppable_.pop_front();
    const Frame frame = std::move(lost->frame);
    const std::size_t bytes = frame->data().size();
    queuedBytes_ -= frame->text().size();
    counters_->droppedMessages.fetch_add(1, std::memory_order_relaxed);
    counters_->droppedBytes.fetch_add(bytes, std::memory_order_relaxed);

    // All losses before this one are told of already. Those with no frame in between make one gap with it,
    // and their notices, one for each class, stand right before it.
    auto notice = lost;
    while (notice != entries_.begin() && std::prev(notice)->loss) {
        --notice;
        if (notice->loss->lossClass != frame->lossClass()) continue;
        ++notice->loss->messages;
        notice->loss->bytes += bytes;
        entries_.erase(lost);
        return;
    }
    lost->loss = std::make_unique<Loss>(Loss{frame->lossClass(), 1, bytes});
}

TakenFrames OutgoingQueue::take(std::size_t maxBytes, std::chrono::milliseconds timeout) {
    const auto deadline = connector::detail::deadlineAfter(timeout);
    TakenFrames taken;
    MutexLock lock(mutex_);
    while (isIdleLocked() && timeout.count() > 0) {  // not even a wait without time comes back at once
        if (changed_.wait_until(lock.native(), deadline) == std::cv_status::timeout) break;
    }
    if (entries_.empty()) {
        taken.isClosed = closeReason_.has_value();
        return taken;
    }
    fullSince_.reset();
    std::size_t bytes = 0;
    while (!entries_.empty()) {
        const auto& first = entries_.front();
        Frame frame = first.loss ? noticeOf(*first.loss) : first.frame;
        bytes += frame->text().size();
        if (!taken.frames.empty() && bytes > maxBytes) break;
        taken.frames.push_back(std::move(frame));
        removeFirstLocked();
    }
    return taken;
}

void OutgoingQueue::removeFirstLocked() {
    if (const auto& frame = entries_.front().frame) {
        queuedBytes_ -= frame->text().size();
        if (frame->lossClass().empty()) {
            keptBytes_ -= frame->text().size();
        } else {
            droppable_.pop_front();  // the oldest one is this
        }
    }
    entries_.pop_front();
}

OutgoingQueue::Frame OutgoingQueue::noticeOf(const Loss& loss) {
    return std::make_shared<const MessageFrame>(connector::wire::channel::dropped,
                                                connector::json::ObjectBuilder()
                                                    .add("channel", loss.lossClass)
                                                    .add("messages", loss.messages)
                                                    .add("bytes", loss.bytes)
                                                    .take());
}

void OutgoingQueue::setWakeUp(std::function<void()> wakeUp) {
    const auto replacement =
        wakeUp ? std::make_shared<const std::function<void()>>(std::move(wakeUp)) : nullptr;
    WakeUp previous;  // destroyed with no lock held
    {
        MutexLock lock(mutex_);
        if (!closeReason_) previous = std::exchange(wakeUp_, replacement);
        if (isIdleLocked()) return;
    }
    call(replacement);
}

void OutgoingQueue::call(const WakeUp& wakeUp) {
    if (wakeUp) callAndLog(*wakeUp);
}

void OutgoingQueue::close(const std::string& reason) {
    WakeUp wakeUp;
    {
        MutexLock lock(mutex_);
        if (closeReason_) return;
        closeReason_ = reason;
        wakeUp = std::move(wakeUp_);
    }
    changed_.notify_all();
    call(wakeUp);
}

bool OutgoingQueue::closeWhenOverdue() {
    {
        MutexLock lock(mutex_);
        if (closeReason_) return true;
        if (!isOverdueLocked()) return false;
    }
    close(overdueReason);
    return true;
}

bool OutgoingQueue::isOverdueLocked() const { return fullSince_ && now_() - *fullSince_ > fullLimit_; }

bool OutgoingQueue::isClosed() const {
    MutexLock lock(mutex_);
    return closeReason_.has_value();
}

std::string OutgoingQueue::closeReason() const {
    MutexLock lock(mutex_);
    return closeReason_.value_or("");
}

std::size_t OutgoingQueue::queuedBytes() const {
    MutexLock lock(mutex_);
    return queuedBytes_;
}

}  // namespace messages
