#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <unordered_map>

#include "connector/ThreadSafety.h"

namespace gateway::http {

/// A connection, as the end of the server sees it.  Threads: any.
class Connection {
public:
    virtual ~Connection() = default;
    /// Ends it as soon as what is being answered has been written.
    virtual void finish() = 0;
    /// Ends it at once.
    virtual void abort() = 0;
};

/// The open connections, which are bounded in number.
///
/// Threads: every operation from any thread.  Locks: mutex_, not held while a connection is called.
class ConnectionTable : public std::enable_shared_from_this<ConnectionTable> {
public:
    explicit ConnectionTable(std::size_t capacity) : capacity_(capacity) {}

    /// A place in the table, for as long as it lives.
    class Place {
    public:
        explicit Place(std::shared_ptr<ConnectionTable> table) : table_(std::move(table)) {}
        ~Place();
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

        /// Makes `connection` what stands at this place.
        void set(const std::shared_ptr<Connection>& connection);

    private:
        const std::shared_ptr<ConnectionTable> table_;
    };

    /// Null when the table is full.
    std::shared_ptr<Place> take() EXCLUDES(mutex_);

    void finishAll() EXCLUDES(mutex_);
    void abortAll() EXCLUDES(mutex_);
    /// Waits until there is no connection; false when there still is one then.
    bool waitUntilEmpty(std::chrono::milliseconds limit) EXCLUDES(mutex_);
    std::size_t size() const EXCLUDES(mutex_);

private:
    template <class Action>
    void forEach(Action action) EXCLUDES(mutex_);

    const std::size_t capacity_;

    mutable connector::Mutex mutex_;
    std::condition_variable changed_;
    std::unordered_map<const Place*, std::weak_ptr<Connection>> connections_ GUARDED_BY(mutex_);
};

}  // namespace gateway::http
