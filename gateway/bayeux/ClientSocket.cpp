#include "bayeux/ClientSocket.h"

#include <utility>

#include "bayeux/ServerCore.h"

namespace gateway::bayeux {

using connector::MutexLock;

namespace {

constexpr std::uint16_t normalClosure = 1000;

}  // namespace

std::size_t ClientSocket::maxFrameBytes() const {
    return isTrusted_ ? core_->options.frameBytes : core_->options.unauthenticatedBytes;
}

void ClientSocket::beginExchange() {
    {
        MutexLock lock(mutex_);
        ++exchanges_;
        isAllReceived_ = isClosed_;
        if (std::exchange(isInTurn_, true)) return;
    }
    core_->turns.begin();
}

void ClientSocket::endExchange() {
    {
        MutexLock lock(mutex_);
        --exchanges_;
        if (!endsTurnLocked()) return;
    }
    core_->turns.end();
}

// What another thread still handles keeps the turn open, but not what it has published until now waiting.
void ClientSocket::endReadTurn() {
    bool isEnd = false;
    bool isInTurn = false;
    {
        MutexLock lock(mutex_);
        isAllReceived_ = true;
        isEnd = endsTurnLocked();
        isInTurn = isInTurn_;
    }
    if (isEnd) {
        core_->turns.end();
    } else if (isInTurn) {
        core_->turns.wakeAll();
    }
}

bool ClientSocket::endsTurnLocked() {
    return isAllReceived_ && exchanges_ == 0 && std::exchange(isInTurn_, false);
}

void ClientSocket::send(const MessageArray& array, bool isReply) {
    if (!isClosed_) sendFrame(array, isReply);
}

bool ClientSocket::hasRoom() {
    if (isClosed_) return false;
    const auto limit = core_->options.replyBytes;
    if (unsentBytes() < limit) return true;
    isRoomWanted_ = true;
    return unsentBytes() < limit;  // it may have been written in between
}

void ClientSocket::progressed() {
    for (const auto& session : users()) session->noteReading();
}

void ClientSocket::drained() {
    if (!isRoomWanted_.exchange(false)) return;
    for (const auto& session : users()) session->wake();
}

bool ClientSocket::bind(const std::shared_ptr<SocketUser>& session) {
    MutexLock lock(mutex_);
    if (isClosed_) return false;
    users_.emplace(session.get(), session);
    return true;
}

void ClientSocket::unbind(const SocketUser& session) {
    MutexLock lock(mutex_);
    users_.erase(&session);
}

std::vector<std::shared_ptr<SocketUser>> ClientSocket::users() {
    std::vector<std::shared_ptr<SocketUser>> sessions;
    MutexLock lock(mutex_);
    for (const auto& [key, weak] : users_) {
        if (auto session = weak.lock()) sessions.push_back(std::move(session));
    }
    return sessions;
}

void ClientSocket::sweep(Time now) {
    if (closeTime_.load() > now) return;
    closeTime_ = Time::max();
    if (users().empty()) close(normalClosure);
}

void ClientSocket::close(std::uint16_t code) {
    if (!isClosing_.exchange(true)) closeFrame(code);
}

void ClientSocket::closed() {
    {
        MutexLock lock(mutex_);
        isClosed_ = true;
    }
    endReadTurn();
    for (const auto& session : users()) session->socketClosed(shared_from_this());
}

}  // namespace gateway::bayeux
