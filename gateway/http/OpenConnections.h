#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>

#include "connector/ThreadSafety.h"

namespace gateway::http {

/// A connection, as what ends all of them sees it.  Threads: any.
class OpenConnection {
public:
    virtual ~OpenConnection() = default;
    /// Ends it as soon as what is being answered has been written.
    virtual void finish() = 0;
    /// Ends it at once.
    virtual void abort() = 0;
};

/// The open connections, which are bounded in number.
///
///     unauthenticated --+-- markAuthenticated --> authenticated --+-- leave --> left: counts no more, but
///        |              '-----------------------------------------'                   ends with the others
///        '-- the oldest, when there is no room for a new one --> displaced: aborted
///
/// Authenticated ones do not take all places, so that a new connection can still say what it wants.
///
/// Threads: every operation from any thread.  Locks: mutex_, not held while a connection is called.
class OpenConnections : public std::enable_shared_from_this<OpenConnections> {
public:
    explicit OpenConnections(std::size_t capacity) : capacity_(capacity) {}

    /// A place among them, for as long as it lives.
    class Place {
    public:
        Place(std::shared_ptr<OpenConnections> connections, std::uint64_t number)
            : connections_(std::move(connections)), number_(number) {}
        ~Place();
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

        /// Makes `connection` what stands at this place.
        void set(const std::shared_ptr<OpenConnection>& connection);
        /// The client has shown the token or a session. False when too many have, or it was displaced.
        bool markAuthenticated();
        /// The client has gone, and only the end of its request is waited for.
        void leave();

    private:
        const std::shared_ptr<OpenConnections> connections_;
        const std::uint64_t number_;
    };

    /// Null when all places are taken by authenticated connections.
    std::shared_ptr<Place> take() CONNECTOR_EXCLUDES(mutex_);

    void finishAll() CONNECTOR_EXCLUDES(mutex_);
    void abortAll() CONNECTOR_EXCLUDES(mutex_);
    /// Waits until there is no connection; false when there still is one then.
    bool waitUntilEmpty(std::chrono::milliseconds limit) CONNECTOR_EXCLUDES(mutex_);
    std::size_t size() const CONNECTOR_EXCLUDES(mutex_);
    /// How many found no place, or were displaced.
    std::uint64_t refused() const CONNECTOR_EXCLUDES(mutex_);

private:
    enum class Standing { Unauthenticated, Authenticated, Left, Displaced };
    struct Entry {
        std::weak_ptr<OpenConnection> connection{};
        Standing standing = Standing::Unauthenticated;
    };

    std::uint64_t add(std::shared_ptr<OpenConnection>& displaced) CONNECTOR_EXCLUDES(mutex_);
    void remove(std::uint64_t number) CONNECTOR_EXCLUDES(mutex_);
    void setStanding(std::uint64_t number, Standing standing) CONNECTOR_REQUIRES(mutex_);
    template <class Action>
    void forEach(Action action) CONNECTOR_EXCLUDES(mutex_);

    const std::size_t capacity_;
    const std::size_t mostAuthenticated_ = capacity_ - capacity_ / 16;

    mutable connector::Mutex mutex_;
    std::condition_variable changed_;
    std::map<std::uint64_t, Entry> entries_ CONNECTOR_GUARDED_BY(mutex_);  ///< by age
    std::set<std::uint64_t> unauthenticated_ CONNECTOR_GUARDED_BY(mutex_);
    std::size_t authenticated_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::uint64_t last_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::uint64_t refused_ CONNECTOR_GUARDED_BY(mutex_) = 0;
};

}  // namespace gateway::http
