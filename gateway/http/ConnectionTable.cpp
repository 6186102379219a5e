#include "http/ConnectionTable.h"

#include <utility>
#include <vector>

namespace gateway::http {

using connector::MutexLock;

ConnectionTable::Place::~Place() { table_->remove(number_); }

void ConnectionTable::Place::set(const std::shared_ptr<Connection>& connection) {
    const MutexLock lock(table_->mutex_);
    table_->entries_[number_].connection = connection;
}

bool ConnectionTable::Place::prove() {
    const MutexLock lock(table_->mutex_);
    const Standing standing = table_->entries_[number_].standing;
    if (standing != Standing::Stranger) return standing != Standing::Displaced;
    if (table_->proven_ >= table_->mostProven_) return false;
    table_->setStanding(number_, Standing::Proven);
    return true;
}

void ConnectionTable::Place::leave() {
    const MutexLock lock(table_->mutex_);
    if (table_->entries_[number_].standing != Standing::Displaced) {
        table_->setStanding(number_, Standing::Left);
    }
}

std::shared_ptr<ConnectionTable::Place> ConnectionTable::take() {
    std::shared_ptr<Connection> displaced;
    const std::uint64_t number = add(displaced);
    if (displaced) displaced->abort();
    return number == 0 ? nullptr : std::make_shared<Place>(shared_from_this(), number);
}

std::uint64_t ConnectionTable::add(std::shared_ptr<Connection>& displaced) {
    const MutexLock lock(mutex_);
    if (strangers_.size() + proven_ >= capacity_) {
        ++refused_;
        if (strangers_.empty()) return 0;
        const std::uint64_t oldest = *strangers_.begin();
        displaced = entries_[oldest].connection.lock();
        setStanding(oldest, Standing::Displaced);
    }
    entries_[++last_];
    strangers_.insert(last_);
    return last_;
}

void ConnectionTable::remove(std::uint64_t number) {
    {
        const MutexLock lock(mutex_);
        setStanding(number, Standing::Displaced);
        entries_.erase(number);
    }
    changed_.notify_all();
}

void ConnectionTable::setStanding(std::uint64_t number, Standing standing) {
    const Standing before = std::exchange(entries_[number].standing, standing);
    if (before == Standing::Stranger) strangers_.erase(number);
    if (before == Standing::Proven) --proven_;
    if (standing == Standing::Proven) ++proven_;
}

template <class Action>
void ConnectionTable::forEach(Action action) {
    std::vector<std::shared_ptr<Connection>> connections;
    {
        const MutexLock lock(mutex_);
        for (const auto& [number, entry] : entries_) connections.push_back(entry.connection.lock());
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
    while (!entries_.empty()) {
        if (changed_.wait_until(lock.native(), deadline) == std::cv_status::timeout) return entries_.empty();
    }
    return true;
}

std::size_t ConnectionTable::size() const {
    const MutexLock lock(mutex_);
    return entries_.size();
}

std::uint64_t ConnectionTable::refused() const {
    const MutexLock lock(mutex_);
    return refused_;
}

}  // namespace gateway::http
