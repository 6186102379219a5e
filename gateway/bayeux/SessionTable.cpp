#include "bayeux/SessionTable.h"

#include "bayeux/ClientMessage.h"
#include "messages/LocalMessageService.h"

namespace gateway::bayeux {

using connector::MutexLock;

bool SessionTable::mayHandshake(const std::string& address, bool hasToken, Time now) {
    MutexLock lock(mutex_);
    const RateLimit fresh(core_->options.handshakesPerSecond, now);
    auto& peer = peers_.try_emplace(address, Usage{fresh, fresh}).first->second;
    return (hasToken ? peer.handshakes : peer.refusals).take(now);
}

std::shared_ptr<BayeuxSession> SessionTable::open(const Peer& peer, bool isAcknowledged,
                                                  const std::shared_ptr<ClientSocket>& socket) {
    const auto client = core_->messages.openSession({.clientType = peer.clientType,
                                                     .queueBytes = core_->options.queueBytes,
                                                     .ownerWait = core_->options.ownerWait});
    auto session = std::make_shared<BayeuxSession>(core_, peer, client, isAcknowledged,
                                                   [weak = weak_from_this()](const BayeuxSession& ended) {
                                                       if (const auto table = weak.lock())
                                                           table->remove(ended);
                                                   });
    if (!add(session)) return nullptr;
    session->strand().post([session, socket] { session->start(socket); });
    return session;
}

bool SessionTable::add(const std::shared_ptr<BayeuxSession>& session) {
    MutexLock lock(mutex_);
    const auto peer = peers_.find(session->peerAddress());
    if (isClosed_ || peer == peers_.end() || peer->second.sessions >= core_->options.sessionsPerPeer) {
        return false;
    }
    ++peer->second.sessions;
    sessions_.emplace(session->id(), session);
    return true;
}

void SessionTable::remove(const BayeuxSession& session) {
    MutexLock lock(mutex_);
    if (sessions_.erase(session.id()) == 0) return;
    --peers_.at(session.peerAddress()).sessions;
}

std::shared_ptr<BayeuxSession> SessionTable::find(const std::string& id) const {
    MutexLock lock(mutex_);
    const auto found = sessions_.find(id);
    return found == sessions_.end() ? nullptr : found->second;
}

std::size_t SessionTable::size() const {
    MutexLock lock(mutex_);
    return sessions_.size();
}

bool SessionTable::showsSession(std::string_view text) const {
    return showsClientId(text, [this](const std::string& id) { return find(id) != nullptr; });
}

std::size_t SessionTable::maxValues(bool isTrusted, std::string_view text) const {
    return isTrusted || showsSession(text) ? core_->options.values : core_->options.unauthenticatedValues;
}

SessionTable::Sessions SessionTable::due(Time now) {
    Sessions due;
    MutexLock lock(mutex_);
    for (const auto& [id, session] : sessions_) {
        if (session->isDue(now)) due.push_back(session);
    }
    std::erase_if(peers_, [&](const auto& entry) {
        const Usage& usage = entry.second;
        return usage.sessions == 0 && usage.handshakes.isIdle(now) && usage.refusals.isIdle(now);
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
