#include "jupyter/KernelClient.h"

#include <algorithm>
#include <utility>

namespace gateway::jupyter {

namespace {

using Rank = OutgoingMessage::Rank;

constexpr std::size_t mostTexts = std::size_t{8} << 20;
constexpr std::size_t mostAway = std::size_t{4} << 20;
constexpr std::size_t mostHere = std::size_t{64} << 20;
constexpr std::size_t waitedFor = std::size_t{4} << 20;
constexpr std::size_t mostSessions = 64;
constexpr std::uint16_t normalClosure = 1000;
constexpr std::uint16_t tryAgainLater = 1013;

}  // namespace

void KernelClient::attach(std::shared_ptr<KernelSocket> socket) {
    if (socket_) socket_->close(normalClosure);
    socket_ = std::move(socket);
    grant_ = socket_->peer().grant;
    pump();
}

bool KernelClient::detach(const KernelSocket& socket) {
    if (socket_.get() != &socket) return false;
    socket_.reset();
    awaySince_ = Clock::now();
    if (bytes_ > mostAway) makeRoom(mostAway, Rank::Answer);
    return true;
}

void KernelClient::push(MessagePtr message) {
    bytes_ += message->size();
    waiting_.push_back({.message = std::move(message)});
    pump();
    if (isAway()) {
        if (bytes_ > mostAway) makeRoom(mostAway, Rank::Answer);
    } else if (bytes_ > mostTexts) {
        makeRoom(mostTexts, Rank::Text);
        if (bytes_ > mostHere) socket_->close(tryAgainLater);
    }
}

void KernelClient::pump() {
    while (socket_ && !waiting_.empty() && socket_->hasRoom()) {
        const Entry entry = std::move(waiting_.front());
        waiting_.pop_front();
        if (entry.message) {
            bytes_ -= entry.message->size();
            socket_->send(*entry.message);
        } else {
            socket_->send(*OutgoingMessage::notice(entry.parent, entry.lostBytes));
        }
    }
}

void KernelClient::close(std::uint16_t code) {
    if (socket_) socket_->close(code);
}

// Down to three quarters, so that it is not done again for each message that comes.
void KernelClient::makeRoom(std::size_t bytes, Rank highest) {
    const std::size_t target = bytes / 4 * 3;
    for (const auto rank : {Rank::Text, Rank::Output, Rank::Answer}) {
        if (bytes_ <= target || rank > highest) return;
        std::deque<Entry> kept;
        Entry* notice = nullptr;
        for (auto& entry : std::exchange(waiting_, {})) {
            const bool isLost = bytes_ > target && entry.message && entry.message->rank() == rank;
            if (isLost) {
                const auto& message = entry.message->message();
                if (!notice) notice = &kept.emplace_back(Entry{.message = nullptr, .parent = message.parent});
                notice->lostBytes += message.content.size();
                bytes_ -= entry.message->size();
                continue;
            }
            kept.push_back(std::move(entry));
            if (!kept.back().message) notice = &kept.back();
        }
        waiting_ = std::move(kept);
    }
}

void KernelClient::noteSession(std::string_view session) {
    if (!sessions_.empty() && sessions_.back() == session) return;
    std::erase(sessions_, session);
    if (sessions_.size() >= mostSessions) sessions_.erase(sessions_.begin());
    sessions_.emplace_back(session);
}

bool KernelClient::hasSession(std::string_view session) const {
    return std::ranges::find(sessions_, session) != sessions_.end();
}

bool KernelClient::isWaitedFor(std::chrono::milliseconds patience) const {
    // Asked for room, the socket tells when there is some.
    return socket_ && !socket_->hasRoom() && bytes_ + socket_->unsentBytes() >= waitedFor &&
           Clock::now() - socket_->lastProgress() < patience;
}

}  // namespace gateway::jupyter
