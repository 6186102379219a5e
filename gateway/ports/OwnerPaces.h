#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>

#include "connector/ThreadSafety.h"
#include "connector/common/RequestOrigin.h"

namespace gateway::ports {

/// The paces of the clients that one process works for: it is told when one of them falls behind and when it
/// has caught up, so that whoever prints for the client there waits.
///
/// What a request has left running may print after its end: the last names are kept that long.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf; `tell` runs without it.
class OwnerPaces {
public:
    using Pace = std::shared_ptr<connector::common::ClientPace>;
    /// `client`: its number. Must be quick.
    using Tell = std::function<void(std::uint64_t client, bool isBehind)>;

    explicit OwnerPaces(Tell tell) : tell_(std::move(tell)) {}

    /// The request `name` is of the client with this number; `pace` may be null.
    void add(const std::string& name, std::uint64_t client, Pace pace) CONNECTOR_EXCLUDES(mutex_);
    /// Null where the request is not known, or nobody waits for its client.
    Pace paceOf(const std::string& name) CONNECTOR_EXCLUDES(mutex_);
    /// Looks at the pace of a client for which something has just been queued, and tells of a change. True
    /// when a client is behind: checkAll() is to be called until none is.
    bool check(const std::string& name) CONNECTOR_EXCLUDES(mutex_);
    bool checkAll() CONNECTOR_EXCLUDES(mutex_);

private:
    struct Client {
        Pace pace;
        std::size_t names = 0;
        bool isBehind = false;
    };
    using Changes = std::map<std::uint64_t, bool>;

    void lookLocked(std::uint64_t number, Client& client, Changes& changes) CONNECTOR_REQUIRES(mutex_);
    void forgetOldestLocked() CONNECTOR_REQUIRES(mutex_);
    bool isAnyBehindLocked() const CONNECTOR_REQUIRES(mutex_);
    void tellAll(const Changes& changes);

    const Tell tell_;

    connector::Mutex mutex_;
    std::map<std::uint64_t, Client> clients_ CONNECTOR_GUARDED_BY(mutex_);
    std::unordered_map<std::string, std::uint64_t> names_ CONNECTOR_GUARDED_BY(mutex_);
    std::deque<std::string> order_ CONNECTOR_GUARDED_BY(mutex_);  // of the names, the oldest first
};

}  // namespace gateway::ports
