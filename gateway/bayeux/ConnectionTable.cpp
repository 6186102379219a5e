#include "bayeux/ConnectionTable.h"

#include "bayeux/Connection.h"

namespace gateway::bayeux {

using connector::MutexLock;

namespace {

constexpr std::uint16_t normalClosure = 1000;

}  // namespace

void ConnectionTable::add(const std::shared_ptr<Connection>& connection) {
    MutexLock lock(mutex_);
    open_.emplace(connection.get(), connection);
}

void ConnectionTable::remove(const Connection& connection) {
    MutexLock lock(mutex_);
    open_.erase(&connection);
}

void ConnectionTable::closeLater(const std::shared_ptr<Connection>& connection, Time when) {
    MutexLock lock(mutex_);
    closing_.emplace_back(when, connection);
}

void ConnectionTable::sweep(Time now) {
    Connections due;
    {
        MutexLock lock(mutex_);
        std::erase_if(closing_, [&](const auto& entry) {
            if (entry.first > now) return false;
            if (auto connection = entry.second.lock()) due.push_back(std::move(connection));
            return true;
        });
    }
    for (const auto& connection : due) {
        if (!connection->hasSessions()) connection->close(normalClosure);
    }
}

void ConnectionTable::closeAll(std::uint16_t code) {
    Connections all;
    {
        MutexLock lock(mutex_);
        for (const auto& [key, weak] : open_) {
            if (auto connection = weak.lock()) all.push_back(std::move(connection));
        }
    }
    for (const auto& connection : all) connection->close(code);
}

}  // namespace gateway::bayeux
