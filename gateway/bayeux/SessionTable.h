#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "bayeux/BayeuxSession.h"
#include "bayeux/RateLimit.h"
#include "bayeux/ServerCore.h"
#include "connector/ThreadSafety.h"

namespace gateway::bayeux {

/// The sessions by the ids that only their clients know, and what each peer has of them. A session leaves it
/// when it ends.
///
/// Threads: any.  Locks: mutex_, a leaf.
class SessionTable : public std::enable_shared_from_this<SessionTable> {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Sessions = std::vector<std::shared_ptr<BayeuxSession>>;

    explicit SessionTable(std::shared_ptr<ServerCore> core) : core_(std::move(core)) {}

    const std::shared_ptr<ServerCore>& core() const { return core_; }

    /// Whether the peer may try another handshake, with the right token or without; then it counts.
    bool mayHandshake(const std::string& address, bool hasToken, Time now) CONNECTOR_EXCLUDES(mutex_);
    /// A new session, which delivers through `socket`, which may be null. Null when the peer has too many
    /// already, or the table is closed.
    std::shared_ptr<BayeuxSession> open(const Peer& peer, bool isAcknowledged,
                                        const std::shared_ptr<ClientSocket>& socket)
        CONNECTOR_EXCLUDES(mutex_);

    /// Null when there is none.
    std::shared_ptr<BayeuxSession> find(const std::string& id) const CONNECTOR_EXCLUDES(mutex_);
    std::size_t size() const CONNECTOR_EXCLUDES(mutex_);

    /// Whether a session is seen in the beginning of a text.
    bool showsSession(std::string_view text) const;
    /// How many values may be read of a text, whose sender may have shown the token or a session before.
    std::size_t maxValues(bool isTrusted, std::string_view text) const;

    /// The sessions that have something to do. Forgets peers that are idle.
    Sessions due(Time now) CONNECTOR_EXCLUDES(mutex_);
    /// Takes all out and lets none in any more.
    Sessions close() CONNECTOR_EXCLUDES(mutex_);

private:
    /// What one peer has had.
    struct Usage {
        RateLimit handshakes;
        RateLimit refusals;
        std::size_t sessions = 0;
    };

    bool add(const std::shared_ptr<BayeuxSession>& session) CONNECTOR_EXCLUDES(mutex_);
    void remove(const BayeuxSession& session) CONNECTOR_EXCLUDES(mutex_);

    const std::shared_ptr<ServerCore> core_;

    mutable connector::Mutex mutex_;
    bool isClosed_ CONNECTOR_GUARDED_BY(mutex_) = false;
    std::unordered_map<std::string, std::shared_ptr<BayeuxSession>> sessions_ CONNECTOR_GUARDED_BY(mutex_);
    std::map<std::string, Usage> peers_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace gateway::bayeux
