#include "bayeux/SessionTable.h"

#include "bayeux/Session.h"

namespace gateway::bayeux {

using connector::MutexLock;

bool SessionTable::mayHandshake(const std::string& address, bool hasToken, Time now) {
    MutexLock lock(mutex_);
    const RateLimit fresh(handshakesPerSecond_, now);
    auto& peer = peers_.try_emplace(address, Peer{fresh, fresh}).first->second;
    return (hasToken ? peer.handshakes : peer.refusals).take(now);
}

bool SessionTable::add(const std::shared_ptr<Session>& session) {
    MutexLock lock(mutex_);
    const auto peer = peers_.find(session->peerAddress());
    if (isClosed_ || peer == peers_.end() || peer->second.sessions >= sessionsPerPeer_) return false;
    ++peer->second.sessions;
    sessions_.emplace(session->id(), session);
    return true;
}

void SessionTable::remove(const Session& session) {
    MutexLock lock(mutex_);
    if (sessions_.erase(session.id()) == 0) return;
    --peers_.at(session.peerAddress()).sessions;
}

std::shared_ptr<Session> SessionTable::find(const std::string& id) const {
    MutexLock lock(mutex_);
    const auto found = sessions_.find(id);
    return found == sessions_.end() ? nullptr : found->second;
}

std::size_t SessionTable::size() const {
    MutexLock lock(mutex_);
    return sessions_.size();
}

SessionTable::Sessions SessionTable::due(Time now) {
    Sessions due;
    MutexLock lock(mutex_);
    for (const auto& [id, session] : sessions_) {
        if (session->isDue(now)) due.push_back(session);
    }
    std::erase_if(peers_, [&](const auto& entry) {
        const Peer& peer = entry.second;
        return peer.sessions == 0 && peer.handshakes.isIdle(now) && peer.refusals.isIdle(now);
    });
    return due;
}

SessionTable::Sessions SessionTable::close() {
    Sessions all;
    MutexLock lock(mutex_);
    isClosed_ = true;
    for (const auto& [id, session] : sessions_) all.push_back(session);
    sessions_.clear();
    peers_.clear();
    return all;
}

}  // namespace gateway::bayeux
