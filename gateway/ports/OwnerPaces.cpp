#include "ports/OwnerPaces.h"

#include <algorithm>
#include <utility>

namespace gateway::ports {

using connector::MutexLock;

namespace {

// More than can be under way: a thousand requests, and as many that have left something behind.
constexpr std::size_t keptNames = 2000;

}  // namespace

void OwnerPaces::add(const std::string& name, std::uint64_t client, Pace pace) {
    if (!pace) return;
    const MutexLock lock(mutex_);
    auto& known = clients_[client];
    known.pace = std::move(pace);
    ++known.names;
    const auto [found, isNew] = names_.emplace(name, client);
    if (isNew) {
        order_.push_back(name);
        if (order_.size() > keptNames) forgetOldestLocked();
    } else {
        --clients_.at(std::exchange(found->second, client)).names;  // of a request that has ended
    }
}

OwnerPaces::Pace OwnerPaces::paceOf(const std::string& name) {
    const MutexLock lock(mutex_);
    const auto found = names_.find(name);
    return found == names_.end() ? nullptr : clients_.at(found->second).pace;
}

bool OwnerPaces::check(const std::string& name) {
    Changes changes;
    bool isBehind = false;
    {
        const MutexLock lock(mutex_);
        const auto found = names_.find(name);
        if (found == names_.end()) return false;
        auto& client = clients_.at(found->second);
        lookLocked(found->second, client, changes);
        isBehind = client.isBehind;
    }
    tellAll(changes);
    return isBehind;
}

bool OwnerPaces::checkAll() {
    Changes changes;
    bool isBehind = false;
    {
        const MutexLock lock(mutex_);
        for (auto& [number, client] : clients_) {
            if (client.isBehind) lookLocked(number, client, changes);
        }
        isBehind = isAnyBehindLocked();
    }
    tellAll(changes);
    return isBehind;
}

void OwnerPaces::lookLocked(std::uint64_t number, Client& client, Changes& changes) {
    const bool isBehind = client.pace->isBehind();
    if (std::exchange(client.isBehind, isBehind) != isBehind) changes[number] = isBehind;
}

// One that is behind is told of as long as it is known, so it is not forgotten before.
void OwnerPaces::forgetOldestLocked() {
    const auto found = names_.find(order_.front());
    const auto client = clients_.find(found->second);
    if (client->second.isBehind) return;
    if (--client->second.names == 0) clients_.erase(client);
    names_.erase(found);
    order_.pop_front();
}

bool OwnerPaces::isAnyBehindLocked() const {
    return std::ranges::any_of(clients_, [](const auto& entry) { return entry.second.isBehind; });
}

void OwnerPaces::tellAll(const Changes& changes) {
    for (const auto& [number, isBehind] : changes) tell_(number, isBehind);
}

}  // namespace gateway::ports
