#include "messages/ChannelTable.h"

#include <algorithm>
#include <utility>

#include "messages/channelNames.h"

namespace messages {

namespace {

// Clients choose the names of channels, so what is kept of them has a limit.
constexpr std::size_t maxResolved = 4'096;

}  // namespace

void tell(const Recipients& recipients, const connector::message_service::JsonMessage& message) {
    for (const auto& subscriber : recipients.subscribers) {
        subscriber->gate.run([&] { subscriber->handler(message); });
    }
}

bool ChannelTable::add(const std::string& pattern, std::uint64_t number, Recipient recipient) {
    if (!mapOf(pattern)[pattern].emplace(number, std::move(recipient)).second) return false;
    forgetMatches(pattern);
    return true;
}

bool ChannelTable::remove(const std::string& pattern, std::uint64_t number) {
    auto& map = mapOf(pattern);
    const auto entry = map.find(pattern);
    if (entry == map.end() || entry->second.erase(number) == 0) return false;
    if (entry->second.empty()) map.erase(entry);
    forgetMatches(pattern);
    return true;
}

ChannelTable::ByPattern& ChannelTable::mapOf(const std::string& pattern) {
    return isChannelName(pattern) ? names_ : wildcards_;
}

void ChannelTable::forgetMatches(const std::string& pattern) {
    if (isChannelName(pattern)) {
        resolved_.erase(pattern);
    } else {
        std::erase_if(resolved_, [&](const auto& entry) { return canMatch(pattern, entry.first); });
    }
}

std::shared_ptr<const Recipients> ChannelTable::find(const std::string& channel) {
    const auto known = resolved_.find(channel);
    if (known != resolved_.end()) return known->second;
    if (resolved_.size() >= maxResolved) resolved_.clear();
    return resolved_.emplace(channel, std::make_shared<const Recipients>(resolve(channel))).first->second;
}

Recipients ChannelTable::resolve(const std::string& channel) const {
    ByNumber matching;
    const auto exact = names_.find(channel);
    if (exact != names_.end()) matching = exact->second;
    for (const auto& [pattern, recipients] : wildcards_) {
        if (canMatch(pattern, channel)) matching.insert(recipients.begin(), recipients.end());
    }

    const auto isAmong = [&](const std::vector<std::string>& patterns) {
        return std::ranges::any_of(patterns, [&](const auto& pattern) { return canMatch(pattern, channel); });
    };
    const bool isForServices = isAmong(forServices_);
    Recipients result;
    for (auto& [number, recipient] : matching) {
        if (auto* client = std::get_if<std::shared_ptr<OutgoingQueue>>(&recipient)) {
            if (!isForServices) result.clients.push_back(std::move(*client));
        } else {
            result.subscribers.push_back(std::get<std::shared_ptr<LocalSubscriber>>(std::move(recipient)));
        }
    }
    for (const auto& pattern : droppable_) {
        if (!canMatch(pattern, channel)) continue;
        result.lossClass = pattern;
        break;
    }
    result.isLogged = isAmong(logged_);
    return result;
}

}  // namespace messages
