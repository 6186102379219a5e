#include "Clients.h"

#include <algorithm>

namespace worker {

using connector::MutexLock;

Clients::Client& Clients::findLocked(std::uint64_t number) {
    const auto found = clients_.find(number);
    if (found != clients_.end()) return found->second;
    forgetLocked();
    return clients_
        .emplace(number, Client{std::make_shared<LinkPace>(writer_), std::make_shared<ClientRequests>()})
        .first->second;
}

void Clients::forgetLocked() {
    if (clients_.size() < enough_) return;
    std::erase_if(clients_, [](const auto& entry) {
        const Client& client = entry.second;
        return client.pace.use_count() == 1 && client.requests.use_count() == 1 &&
               !client.pace->isClientBehind();
    });
    enough_ = std::max<std::size_t>(64, 2 * clients_.size());
}

std::shared_ptr<LinkPace> Clients::paceOf(std::uint64_t number) {
    const MutexLock lock(mutex_);
    return findLocked(number).pace;
}

std::shared_ptr<Clients::ClientRequests> Clients::requestsOf(std::uint64_t number, std::uint64_t arrivedNs) {
    const MutexLock lock(mutex_);
    const Client& client = findLocked(number);
    if (arrivedNs == 0 || arrivedNs >= client.interruptedNs) return client.requests;
    auto late = std::make_shared<ClientRequests>();
    late->refuse();
    return late;
}

void Clients::setBehind(std::uint64_t number, bool isBehind) {
    const MutexLock lock(mutex_);
    if (isBehind || clients_.contains(number)) findLocked(number).pace->setBehind(isBehind);
}

void Clients::noteInterrupt(std::uint64_t number, std::uint64_t arrivedNs) {
    const MutexLock lock(mutex_);
    auto& last = findLocked(number).interruptedNs;
    last = std::max(last, arrivedNs);
}

void Clients::withdraw(std::uint64_t number) {
    std::shared_ptr<ClientRequests> requests;
    {
        const MutexLock lock(mutex_);
        const auto found = clients_.find(number);
        if (found != clients_.end()) requests = found->second.requests;
    }
    if (requests) requests->withdraw();
}

}  // namespace worker
