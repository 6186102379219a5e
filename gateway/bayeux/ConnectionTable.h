#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "connector/ThreadSafety.h"

namespace gateway::bayeux {

class Connection;

/// The open WebSockets, and those of them that are to be closed.
///
/// Threads: any.  Locks: mutex_, a leaf.
class ConnectionTable {
public:
    using Time = std::chrono::steady_clock::time_point;

    void add(const std::shared_ptr<Connection>& connection) EXCLUDES(mutex_);
    void remove(const Connection& connection) EXCLUDES(mutex_);

    /// Closes a socket at `when`, unless it has a session then: its client may begin a new one on it.
    void closeLater(const std::shared_ptr<Connection>& connection, Time when) EXCLUDES(mutex_);
    /// Closes those whose time has come.
    void sweep(Time now) EXCLUDES(mutex_);
    void closeAll(std::uint16_t code) EXCLUDES(mutex_);

private:
    using Connections = std::vector<std::shared_ptr<Connection>>;

    connector::Mutex mutex_;
    std::map<const Connection*, std::weak_ptr<Connection>> open_ GUARDED_BY(mutex_);
    std::vector<std::pair<Time, std::weak_ptr<Connection>>> closing_ GUARDED_BY(mutex_);
};

}  // namespace gateway::bayeux
