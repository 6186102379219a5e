#include "MessageLog.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>

#include "connector/json/ObjectBuilder.h"
#include "connector/wireWords.h"
#include "messages/channelNames.h"

namespace messages {

using connector::json::ObjectBuilder;

namespace {

constexpr std::size_t mostKept = 10'000;  // messages of one group
constexpr std::size_t mostLostKnown = 100'000;
constexpr std::size_t mostChannelBytes = std::size_t{4} << 20;  // of the names of their channels

// What a frame takes in memory, with the nodes that hold it.
std::size_t costOf(const MessageFrame& frame) { return frame.text().size() + 256; }

std::size_t costOf(std::string_view channel) { return channel.size() + 128; }

bool canMatchAny(const std::vector<std::string>& patterns, std::string_view channel) {
    return std::ranges::any_of(patterns, [&](const auto& pattern) { return canMatch(pattern, channel); });
}

}  // namespace

MessageLog::Frame MessageLog::add(std::string_view channel, std::string_view data, std::string_view lossClass,
                                  const MessageMembers& members) {
    ++last_;
    auto frame = std::make_shared<const MessageFrame>(channel, data, members.text(last_), lossClass, last_);
    entries_.push_back({last_, frame});
    Group& group = groups_[frame->lossClass()];
    group.entries.push_back(std::prev(entries_.end()));
    group.bytes += costOf(*frame);
    const auto isTooMuch = [&] {
        return group.entries.size() > 1 && (group.bytes - costOf(*group.entries.front()->frame) >= limit_ ||
                                            group.entries.size() > mostKept);
    };
    while (isTooMuch()) dropOldest(group);
    return frame;
}

void MessageLog::dropOldest(Group& group) {
    const auto entry = group.entries.front();
    group.entries.pop_front();
    group.bytes -= costOf(*entry->frame);
    noteLoss(*entry->frame, group);
    entries_.erase(entry);
}

void MessageLog::noteLoss(const MessageFrame& frame, Group& group) {
    auto channel = channels_.find(frame.channel());
    if (channel == channels_.end()) {
        channel = channels_.emplace(frame.channel(), Channel{&group}).first;
        channelBytes_ += costOf(frame.channel());
    }
    ++channel->second.losses;
    lost_.push_back({frame.number(), frame.data().size(), channel});
    while (lost_.size() > mostLostKnown || channelBytes_ > mostChannelBytes) forgetOldestLoss();
}

void MessageLog::forgetOldestLoss() {
    const Lost lost = lost_.front();
    lost_.pop_front();
    auto& [name, channel] = *lost.channel;
    channel.group->forgotten.add({lost.number, lost.number, lost.bytes});
    if (--channel.losses > 0) return;
    channelBytes_ -= costOf(name);
    channels_.erase(lost.channel);
}

void MessageLog::Missing::add(const Missing& other) {
    from = from == 0 ? other.from : std::min(from, other.from);
    to = std::max(to, other.to);
    bytes += other.bytes;
}

// Numbers are not lost in their order, because each group has its own limits.
MessageLog::Missing MessageLog::missingAfter(std::uint64_t number,
                                             const std::vector<std::string>& patterns) const {
    Missing missing;
    if (number > 0 && number + 1 < first_) missing.add({number + 1, first_ - 1, 0});
    for (const auto& [lossClass, group] : groups_) {
        const auto& [from, to, bytes] = group.forgotten;
        if (to <= number || !canMatchAny(patterns, lossClass.empty() ? "/**" : lossClass)) continue;
        missing.add({std::max(from, number + 1), to, bytes});
    }
    std::unordered_set<const Channel*> matched;
    for (const auto& [name, channel] : channels_) {
        if (canMatchAny(patterns, name)) matched.insert(&channel);
    }
    for (const Lost& lost : lost_) {
        if (lost.number <= number || !matched.contains(&lost.channel->second)) continue;
        missing.add({lost.number, lost.number, lost.bytes});
    }
    return missing;
}

std::vector<MessageLog::Frame> MessageLog::after(std::uint64_t number,
                                                 const std::vector<std::string>& patterns) const {
    std::vector<Frame> frames;
    if (number > last_) number = 0;
    if (const auto missing = missingAfter(number, patterns); missing.to > 0) {
        frames.push_back(std::make_shared<const MessageFrame>(connector::wire::channel::gap,
                                                              ObjectBuilder()
                                                                  .add("from", missing.from)
                                                                  .add("to", missing.to)
                                                                  .add("bytes", missing.bytes)
                                                                  .take()));
    }
    for (const Entry& entry : entries_) {
        if (entry.number <= number) continue;
        if (canMatchAny(patterns, entry.frame->channel())) frames.push_back(entry.frame);
    }
    return frames;
}

}  // namespace messages
