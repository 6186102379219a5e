#include "bayeux/Connection.h"

#include <utility>

#include "bayeux/Core.h"
#include "bayeux/Exchange.h"
#include "bayeux/Request.h"
#include "bayeux/Session.h"

namespace gateway::bayeux {

using connector::MutexLock;

namespace {

constexpr std::uint16_t policyViolation = 1008;
constexpr std::uint16_t tooBig = 1009;

}  // namespace

Connection::Connection(std::shared_ptr<Core> core, Peer peer, SocketActions actions)
    : core_(std::move(core)),
      peer_(std::move(peer)),
      actions_(std::move(actions)),
      isTrusted_(peer_.isAuthenticated) {}

std::size_t Connection::maxFrameBytes() const {
    return isTrusted_ ? core_->options.frameBytes : core_->options.strangerBytes;
}

void Connection::receive(const std::string& text) {
    if (isClosing_) return;
    if (text.size() > maxFrameBytes()) return close(tooBig);
    try {
        auto requests = readRequests(text, core_->options.depth, core_->options.messagesPerArray,
                                     core_->mostValues(isTrusted_, text));
        if (requests.empty()) {
            send("[]", true);  // a sign of life
        } else {
            Exchange::start(std::make_shared<SocketExchange>(core_, std::move(requests), shared_from_this()));
        }
        // Reading what strangers send takes time that others need.
        if (!isTrusted_) close(policyViolation);
    } catch (const BadEnvelope& error) {
        close(error.closeCode());
    }
}

void Connection::beginExchange() {
    MutexLock lock(mutex_);
    ++exchanges_;
    isReadEmpty_ = isClosed_;
    if (!std::exchange(isInTurn_, true)) core_->turns.begin();
}

void Connection::endExchange() {
    {
        MutexLock lock(mutex_);
        --exchanges_;
        if (!leavesTurnLocked()) return;
    }
    core_->turns.end();
}

void Connection::endReadTurn() {
    {
        MutexLock lock(mutex_);
        isReadEmpty_ = true;
        if (!leavesTurnLocked()) return;
    }
    core_->turns.end();
}

bool Connection::leavesTurnLocked() {
    return isReadEmpty_ && exchanges_ == 0 && std::exchange(isInTurn_, false);
}

void Connection::send(std::string array, bool isReply) const {
    if (isClosed_) return;
    actions_.send(std::make_shared<const std::string>(std::move(array)), isReply);
}

bool Connection::hasRoom() {
    if (isClosed_) return false;
    const auto limit = core_->options.replyBytes;
    if (actions_.unsentBytes() < limit) return true;
    isRoomWanted_ = true;
    return actions_.unsentBytes() < limit;  // it may have been written in between
}

void Connection::drained() {
    if (!isRoomWanted_.exchange(false)) return;
    for (const auto& session : bound()) session->wake();
}

bool Connection::bind(const std::shared_ptr<Session>& session) {
    MutexLock lock(mutex_);
    if (isClosed_) return false;
    sessions_.emplace(session.get(), session);
    return true;
}

void Connection::unbind(const Session& session) {
    MutexLock lock(mutex_);
    sessions_.erase(&session);
}

bool Connection::hasSessions() {
    MutexLock lock(mutex_);
    return !sessions_.empty();
}

std::vector<std::shared_ptr<Session>> Connection::bound() {
    std::vector<std::shared_ptr<Session>> sessions;
    MutexLock lock(mutex_);
    for (const auto& [key, weak] : sessions_) {
        if (auto session = weak.lock()) sessions.push_back(std::move(session));
    }
    return sessions;
}

void Connection::close(std::uint16_t code) {
    if (!isClosing_.exchange(true)) actions_.close(code);
}

void Connection::closed() {
    {
        MutexLock lock(mutex_);
        isClosed_ = true;
    }
    endReadTurn();
    const auto self = shared_from_this();
    for (const auto& session : bound()) {
        session->strand().post([session, self] { session->loseSocket(self); });
    }
}

}  // namespace gateway::bayeux
