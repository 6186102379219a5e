#include "ports/InFlight.h"

#include <utility>

namespace gateway::ports {

using connector::MutexLock;

namespace {

template <class Map>
auto taken(Map& map, std::uint64_t id) {
    std::optional<typename Map::mapped_type> found;
    if (auto node = map.extract(id)) found = std::move(node.mapped());
    return found;
}

template <class Map>
auto all(Map& map) {
    std::vector<typename Map::mapped_type> values;
    for (auto& [id, value] : map) values.push_back(std::move(value));
    map.clear();
    return values;
}

}  // namespace

std::uint64_t InFlight::add(Request&& request) {
    const MutexLock lock(mutex_);
    if (isClosed_) return 0;
    bytes_ += request.bytes;
    requests_.emplace(++last_, std::move(request));
    return last_;
}

std::uint64_t InFlight::add(Stream&& stream) {
    const MutexLock lock(mutex_);
    if (isClosed_) return 0;
    bytes_ += stream.bytes;
    streams_.emplace(++last_, std::move(stream));
    return last_;
}

std::optional<InFlight::Request> InFlight::takeRequest(std::uint64_t id) {
    const MutexLock lock(mutex_);
    auto found = taken(requests_, id);
    if (found) bytes_ -= found->bytes;
    return found;
}

InFlight::Taken InFlight::takeReply(std::uint64_t id) {
    const MutexLock lock(mutex_);
    const auto found = streams_.find(id);
    if (found == streams_.end()) return nullptr;
    bytes_ -= std::exchange(found->second.bytes, 0);
    return std::exchange(found->second.taken, nullptr);
}

std::optional<InFlight::Stream> InFlight::takeStream(std::uint64_t id) {
    const MutexLock lock(mutex_);
    auto found = taken(streams_, id);
    if (found) bytes_ -= found->bytes;
    return found;
}

std::vector<InFlight::Taken> InFlight::takeOverdue(Time now) {
    std::vector<Taken> overdue;
    const MutexLock lock(mutex_);
    for (auto& [id, stream] : streams_) {
        if (stream.taken && stream.replyUntil <= now) {
            overdue.push_back(std::exchange(stream.taken, nullptr));
        }
    }
    return overdue;
}

InFlight::All InFlight::takeAll() {
    const MutexLock lock(mutex_);
    isClosed_ = true;
    bytes_ = 0;
    return {all(requests_), all(streams_)};
}

std::size_t InFlight::count() const {
    const MutexLock lock(mutex_);
    return requests_.size() + streams_.size();
}

std::size_t InFlight::bytes() const {
    const MutexLock lock(mutex_);
    return bytes_;
}

}  // namespace gateway::ports
