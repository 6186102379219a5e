#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "bayeux/RateLimit.h"
#include "connector/ThreadSafety.h"

namespace gateway::bayeux {

class Session;

/// The sessions by the ids that only their clients know, and what each peer has of them.
///
/// Threads: any.  Locks: mutex_, a leaf.
class SessionTable {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Sessions = std::vector<std::shared_ptr<Session>>;

    SessionTable(std::size_t handshakesPerSecond, std::size_t sessionsPerPeer)
        : handshakesPerSecond_(handshakesPerSecond), sessionsPerPeer_(sessionsPerPeer) {}

    /// Whether the peer may try another handshake, with the right token or without; then it counts.
    bool mayHandshake(const std::string& address, bool hasToken, Time now) EXCLUDES(mutex_);
    /// False when the peer has too many already, or the table is closed.
    bool add(const std::shared_ptr<Session>& session) EXCLUDES(mutex_);
    void remove(const Session& session) EXCLUDES(mutex_);

    /// Null when there is none.
    std::shared_ptr<Session> find(const std::string& id) const EXCLUDES(mutex_);
    std::size_t size() const EXCLUDES(mutex_);

    /// The sessions that have something to do. Forgets peers that are idle.
    Sessions due(Time now) EXCLUDES(mutex_);
    /// Takes all out and lets none in any more.
    Sessions close() EXCLUDES(mutex_);

private:
    struct Peer {
        RateLimit handshakes;
        RateLimit refusals;
        std::size_t sessions = 0;
    };

    const std::size_t handshakesPerSecond_;
    const std::size_t sessionsPerPeer_;

    mutable connector::Mutex mutex_;
    bool isClosed_ GUARDED_BY(mutex_) = false;
    std::unordered_map<std::string, std::shared_ptr<Session>> sessions_ GUARDED_BY(mutex_);
    std::map<std::string, Peer> peers_ GUARDED_BY(mutex_);
};

}  // namespace gateway::bayeux
