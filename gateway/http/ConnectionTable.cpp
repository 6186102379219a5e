#include "http/ConnectionTable.h"

#include <vector>

namespace gateway::http {

using connector::MutexLock;

ConnectionTable::Place::~Place() {
    {
        const MutexLock lock(table_->mutex_);
        table_->connections_.erase(this);
    }
    table_->changed_.notify_all();
}

void ConnectionTable::Place::set(const std::shared_ptr<Connection>& connection) {
    const MutexLock lock(table_->mutex_);
    table_->connections_[this] = connection;
}

std::shared_ptr<ConnectionTable::Place> ConnectionTable::take() {
    auto place = std::make_shared<Place>(shared_from_this());
    const MutexLock lock(mutex_);
    if (connections_.size() >= capacity_) return nullptr;
    connections_[place.get()];
    return place;
}

template <class Action>
void ConnectionTable::forEach(Action action) {
    std::vector<std::shared_ptr<Connection>> connections;
    {
        const MutexLock lock(mutex_);
        for (const auto& [place, connection] : connections_) connections.push_back(connection.lock());
    }
    for (const auto& connection : connections) {
        if (connection) action(*connection);
    }
}

void ConnectionTable::finishAll() {
    forEach([](Connection& connection) { connection.finish(); });
}

void ConnectionTable::abortAll() {
    forEach([](Connection& connection) { connection.abort(); });
}

bool ConnectionTable::waitUntilEmpty(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    MutexLock lock(mutex_);
    while (!connections_.empty()) {
        if (changed_.wait_until(lock.native(), deadline) == std::cv_status::timeout)
            return connections_.empty();
    }
    return true;
}

std::size_t ConnectionTable::size() const {
    const MutexLock lock(mutex_);
    return connections_.size();
}

}  // namespace gateway::http
