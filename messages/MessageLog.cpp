#include "MessageLog.h"

#include <algorithm>
#include <iterator>

#include "connector/json/ObjectBuilder.h"
#include "connector/wireWords.h"
#include "messages/channelNames.h"

namespace messages {

using connector::json::ObjectBuilder;

namespace {

constexpr std::size_t mostKept = 10'000;  // messages of one group
constexpr std::size_t mostLostKnown = 100'000;

// What a frame takes in memory, with the nodes that hold it.
std::size_t costOf(const MessageFrame& frame) { return frame.text().size() + 256; }

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
    lost_.push_back({entry->number, entry->frame->data().size()});
    entries_.erase(entry);
    if (lost_.size() <= mostLostKnown) return;
    forgotten_.number = std::max(forgotten_.number, lost_.front().number);
    forgotten_.bytes += lost_.front().bytes;
    lost_.pop_front();
}

// Numbers are not lost in their order, because each group has its own limits.
MessageLog::Frame MessageLog::gapAfter(std::uint64_t number) const {
    Lost missed;
    if (number > 0 && number + 1 < first_) missed.number = first_ - 1;
    if (number < forgotten_.number) missed = forgotten_;
    for (const Lost& lost : lost_) {
        if (lost.number <= number) continue;
        missed.number = std::max(missed.number, lost.number);
        missed.bytes += lost.bytes;
    }
    if (missed.number == 0) return nullptr;
    return std::make_shared<const MessageFrame>(
        connector::wire::channel::gap, ObjectBuilder()
                                           .add("from", std::max(number + 1, number > 0 ? 0 : first_))
                                           .add("to", missed.number)
                                           .add("bytes", missed.bytes)
                                           .take());
}

std::vector<MessageLog::Frame> MessageLog::after(std::uint64_t number,
                                                 const std::vector<std::string>& patterns) const {
    std::vector<Frame> frames;
    if (number > last_) number = 0;
    if (auto gap = gapAfter(number)) frames.push_back(std::move(gap));
    for (const Entry& entry : entries_) {
        if (entry.number <= number) continue;
        const auto matches = [&](const auto& pattern) { return canMatch(pattern, entry.frame->channel()); };
        if (std::ranges::any_of(patterns, matches)) frames.push_back(entry.frame);
    }
    return frames;
}

}  // namespace messages
