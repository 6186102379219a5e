#include "http/OpenConnections.h"

#include <utility>
#include <vector>

namespace gateway::http {

using connector::MutexLock;

OpenConnections::Place::~Place() { connections_->remove(number_); }

void OpenConnections::Place::set(const std::shared_ptr<OpenConnection>& connection) {
    const MutexLock lock(connections_->mutex_);
    connections_->entries_[number_].connection = connection;
}

bool OpenConnections::Place::markAuthenticated() {
    const MutexLock lock(connections_->mutex_);
    const Standing standing = connections_->entries_[number_].standing;
    if (standing != Standing::Unauthenticated) return standing != Standing::Displaced;
    if (connections_->authenticated_ >= connections_->mostAuthenticated_) return false;
    connections_->setStanding(number_, Standing::Authenticated);
    return true;
}

void OpenConnections::Place::leave() {
    const MutexLock lock(connections_->mutex_);
    if (connections_->entries_[number_].standing != Standing::Displaced) {
        connections_->setStanding(number_, Standing::Left);
    }
}

std::shared_ptr<OpenConnections::Place> OpenConnections::take() {
    std::shared_ptr<OpenConnection> displaced;
    const std::uint64_t number = add(displaced);
    if (displaced) displaced->abort();
    return number == 0 ? nullptr : std::make_shared<Place>(shared_from_this(), number);
}

std::uint64_t OpenConnections::add(std::shared_ptr<OpenConnection>& displaced) {
    const MutexLock lock(mutex_);
    if (unauthenticated_.size() + authenticated_ >= capacity_) {
        ++refused_;
        if (unauthenticated_.empty()) return 0;
        const std::uint64_t oldest = *unauthenticated_.begin();
        displaced = entries_[oldest].connection.lock();
        setStanding(oldest, Standing::Displaced);
    }
    entries_[++last_];
    unauthenticated_.insert(last_);
    return last_;
}

void OpenConnections::remove(std::uint64_t number) {
    {
        const MutexLock lock(mutex_);
        setStanding(number, Standing::Displaced);
        entries_.erase(number);
    }
    changed_.notify_all();
}

void OpenConnections::setStanding(std::uint64_t number, Standing standing) {
    const Standing before = std::exchange(entries_[number].standing, standing);
    if (before == Standing::Unauthenticated) unauthenticated_.erase(number);
    if (before == Standing::Authenticated) --authenticated_;
    if (standing == Standing::Authenticated) ++authenticated_;
}

template <class Action>
void OpenConnections::forEach(Action action) {
    std::vector<std::shared_ptr<OpenConnection>> connections;
    {
        const MutexLock lock(mutex_);
        for (const auto& [number, entry] : entries_) connections.push_back(entry.connection.lock());
    }
    for (const auto& connection : connections) {
        if (connection) action(*connection);
    }
}

void OpenConnections::finishAll() {
    forEach([](OpenConnection& connection) { connection.finish(); });
}

void OpenConnections::abortAll() {
    forEach([](OpenConnection& connection) { connection.abort(); });
}

bool OpenConnections::waitUntilEmpty(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    MutexLock lock(mutex_);
    while (!entries_.empty()) {
        if (changed_.wait_until(lock.native(), deadline) == std::cv_status::timeout) return entries_.empty();
    }
    return true;
}

std::size_t OpenConnections::size() const {
    const MutexLock lock(mutex_);
    return entries_.size();
}

std::uint64_t OpenConnections::refused() const {
    const MutexLock lock(mutex_);
    return refused_;
}

}  // namespace gateway::http
