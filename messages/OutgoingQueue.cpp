#include "OutgoingQueue.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "connector/detail/SharedFutureState.h"
#include "connector/json/ObjectBuilder.h"
#include "connector/wireWords.h"
#include "messages/HandlerGate.h"

namespace messages {

using connector::MutexLock;

namespace {

constexpr const char* fullReason = "its queue is full of messages that must not be lost";
constexpr const char* overdueReason = "its queue has been full for too long";

// Shares of the queue: a client that has more than the first waiting is behind, until it has less than the
// second.
constexpr std::size_t behindShare = 8;
constexpr std::size_t caughtUpShare = 16;

}  // namespace

OutgoingQueue::OutgoingQueue(const SessionOptions& options, Now now,
                             std::shared_ptr<MessageCounters> counters)
    : limit_(options.queueBytes),
      fullLimit_(options.fullLimit),
      ownerWait_(options.ownerWait),
      now_(std::move(now)),
      counters_(std::move(counters)) {}

bool OutgoingQueue::push(const Frame& frame, const Pace* owner) {
    std::vector<WakeUp> wakeUps;
    const bool isOpen = push(frame, owner, wakeUps);
    for (const WakeUp& wakeUp : wakeUps) call(wakeUp);
    return isOpen;
}

bool OutgoingQueue::push(const Frame& frame, const Pace* owner, std::vector<WakeUp>& wakeUps) {
    bool isOpen = false;
    {
        MutexLock lock(mutex_);
        if (closeReason_) return false;
        const bool wasEmpty = entries_.empty();
        if (wasEmpty) lastRead_ = now_();
        addLocked(frame, owner == this);
        updateBehindLocked();
        isOpen = !closeReason_;
        if (isOpen && !wasEmpty) return true;
        wakeUps.push_back(isOpen ? wakeUp_ : std::move(wakeUp_));
    }
    changed_.notify_all();
    return isOpen;
}

void OutgoingQueue::addLocked(const Frame& frame, bool isOwn) {
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
    entries_.push_back({frame, nullptr, isOwn});
    queuedBytes_ += size;
    if (mayBeLost) {
        droppable_.at(isOwn ? 1 : 0).push_back(std::prev(entries_.end()));
    } else {
        keptBytes_ += size;
    }
    // What must not be lost may be above the limit alone; then the new frame is lost itself.
    while (queuedBytes_ > room && queuedBytes_ > keptBytes_) dropOldestLocked();
}

void OutgoingQueue::dropOldestLocked() {
    auto& candidates = droppable_.at(droppable_[0].empty() ? 1 : 0);
    const auto lost = candidates.front();
    candidates.pop_front();
    const Frame frame = std::move(lost->frame);
    const std::size_t bytes = frame->data().size();
    queuedBytes_ -= frame->text().size();
    counters_->droppedMessages.fetch_add(1, std::memory_order_relaxed);
    counters_->droppedBytes.fetch_add(bytes, std::memory_order_relaxed);
    noteLossLocked(lost, *frame);
}

// Losses with no frame in between make one gap, with one notice for each class.
void OutgoingQueue::noteLossLocked(Entries::iterator lost, const MessageFrame& frame) {
    auto first = lost, end = std::next(lost);
    while (first != entries_.begin() && std::prev(first)->loss) --first;
    while (end != entries_.end() && end->loss) ++end;
    Loss* notice = nullptr;
    for (auto entry = first; entry != end;) {
        const auto at = entry++;
        if (at == lost || at->loss->lossClass != frame.lossClass()) continue;
        if (notice == nullptr) {
            notice = at->loss.get();
        } else {
            notice->add(*at->loss);
            entries_.erase(at);
        }
    }
    const Loss loss{{}, 1, frame.data().size(), frame.number(), frame.number()};
    if (notice != nullptr) {
        notice->add(loss);
        entries_.erase(lost);
    } else {
        lost->loss = std::make_unique<Loss>(loss);
        lost->loss->lossClass = frame.lossClass();
    }
}

void OutgoingQueue::Loss::add(const Loss& other) {
    messages += other.messages;
    bytes += other.bytes;
    to = std::max(to, other.to);
    if (other.from > 0) from = from == 0 ? other.from : std::min(from, other.from);
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
    lastRead_ = now_();
    std::size_t bytes = 0;
    while (!entries_.empty()) {
        const auto& first = entries_.front();
        Frame frame = first.loss ? noticeOf(*first.loss) : first.frame;
        bytes += frame->text().size();
        if (!taken.frames.empty() && bytes > maxBytes) break;
        taken.frames.push_back(std::move(frame));
        removeFirstLocked();
    }
    updateBehindLocked();
    return taken;
}

void OutgoingQueue::discard() {
    Entries entries;
    {
        MutexLock lock(mutex_);
        entries.swap(entries_);
        for (auto& candidates : droppable_) candidates.clear();
        queuedBytes_ = keptBytes_ = 0;
    }
}

void OutgoingQueue::updateBehindLocked() {
    const std::size_t mark = limit_ / (isMuchQueued_ ? caughtUpShare : behindShare);
    const bool isMuch = ownerWait_.count() > 0 && !closeReason_ && queuedBytes_ > mark;
    if (isMuch == isMuchQueued_) return;
    isMuchQueued_ = isMuch;
    if (!isMuch) caughtUp_.notify_all();
}

bool OutgoingQueue::isBehind() const { return isMuchQueued_ && now_() - lastRead_.load() <= ownerWait_; }

void OutgoingQueue::waitUntilCaughtUp(std::chrono::milliseconds limit) {
    const auto deadline = connector::detail::deadlineAfter(limit);
    MutexLock lock(mutex_);
    while (isBehind()) {
        if (caughtUp_.wait_until(lock.native(), deadline) == std::cv_status::timeout) return;
    }
}

void OutgoingQueue::removeFirstLocked() {
    if (const auto& frame = entries_.front().frame) {
        queuedBytes_ -= frame->text().size();
        if (frame->lossClass().empty()) {
            keptBytes_ -= frame->text().size();
        } else {
            droppable_.at(entries_.front().isOwn ? 1 : 0).pop_front();  // the oldest one is this
        }
    }
    entries_.pop_front();
}

OutgoingQueue::Frame OutgoingQueue::noticeOf(const Loss& loss) {
    connector::json::ObjectBuilder data;
    data.add("channel", loss.lossClass).add("messages", loss.messages).add("bytes", loss.bytes);
    if (loss.from > 0) data.add("from", loss.from).add("to", loss.to);
    return std::make_shared<const MessageFrame>(connector::wire::channel::dropped, data.take());
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
        updateBehindLocked();
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
