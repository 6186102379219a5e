#include "jupyter/KernelClient.h"

#include <utility>

namespace gateway::jupyter {

namespace {

constexpr std::size_t mostTexts = std::size_t{8} << 20;
constexpr std::size_t mostAway = std::size_t{4} << 20;
constexpr std::size_t mostHere = std::size_t{64} << 20;
constexpr std::size_t waitedFor = std::size_t{4} << 20;
constexpr std::uint16_t normalClosure = 1000;
constexpr std::uint16_t tryAgainLater = 1013;

}  // namespace

void KernelClient::attach(std::shared_ptr<KernelSocket> socket) {
    if (socket_) socket_->close(normalClosure);
    socket_ = std::move(socket);
    pump();
}

bool KernelClient::detach(const KernelSocket& socket) {
    if (socket_.get() != &socket) return false;
    socket_.reset();
    awaySince_ = Clock::now();
    if (bytes_ > mostAway) makeRoom(mostAway, false);
    return true;
}

void KernelClient::push(MessagePtr message) {
    bytes_ += message->size();
    waiting_.push_back({std::move(message)});
    pump();
    if (isAway()) {
        if (bytes_ > mostAway) makeRoom(mostAway, false);
    } else if (bytes_ > mostTexts) {
        makeRoom(mostTexts, true);
        if (bytes_ > mostHere) socket_->close(tryAgainLater);
    }
}

void KernelClient::pump() {
    while (socket_ && !waiting_.empty() && socket_->hasRoom()) {
        const Entry entry = std::move(waiting_.front());
        waiting_.pop_front();
        bytes_ -= entry.message->size();
        if (entry.lostBytes == 0) {
            socket_->send(*entry.message);
        } else {
            socket_->send(*OutgoingMessage::notice(entry.message->message().parent, entry.lostBytes));
        }
    }
}

void KernelClient::close(std::uint16_t code) {
    if (socket_) socket_->close(code);
}

// Down to three quarters, so that it is not done again for each message that comes.
void KernelClient::makeRoom(std::size_t bytes, bool isTextOnly) {
    const std::size_t target = bytes / 4 * 3;
    for (const bool isOfTexts : {true, false}) {
        if (bytes_ <= target || (isTextOnly && !isOfTexts)) return;
        std::deque<Entry> kept;
        Entry* notice = nullptr;
        for (auto& entry : std::exchange(waiting_, {})) {
            const bool isLost =
                bytes_ > target && entry.lostBytes == 0 && entry.message->isText() == isOfTexts;
            if (isLost && notice) {
                notice->lostBytes += entry.message->message().content.size();
                bytes_ -= entry.message->size();
                continue;
            }
            if (isLost) entry.lostBytes = entry.message->message().content.size();
            kept.push_back(std::move(entry));
            if (kept.back().lostBytes > 0) notice = &kept.back();
        }
        waiting_ = std::move(kept);
    }
}

bool KernelClient::isWaitedFor(std::chrono::milliseconds patience) const {
    return socket_ && bytes_ + socket_->unsentBytes() >= waitedFor &&
           Clock::now() - socket_->lastProgress() < patience;
}

}  // namespace gateway::jupyter
