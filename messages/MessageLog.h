#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "MessageMembers.h"
#include "messages/MessageFrame.h"

namespace messages {

/// Keeps what was published last, numbered, for clients that ask for what they missed.
///
/// There is a group for each loss class, so that none pushes out another, and one for what must not be lost.
/// The oldest of a group goes when those after it reach the limit alone, so that there is less than the limit
/// and one message; the newest stays, however large. A message counts as its frame's text and 256 bytes, so
/// that small ones are bounded too; there are 10,000 in a group at most.
///
/// Threads: one at a time.
class MessageLog {
public:
    using Frame = std::shared_ptr<const MessageFrame>;

    /// `limit`: of each group, in bytes. `first`: the number of the first message, from 1.
    explicit MessageLog(std::size_t limit, std::uint64_t first = 1)
        : limit_(limit), first_(first), last_(first - 1) {}

    /// Makes the frame of the next message, with the `members` and its number.
    Frame add(std::string_view channel, std::string_view data, std::string_view lossClass,
              const MessageMembers& members = {{}, nullptr});

    /// The number of the newest message; one less than the first when there was none.
    std::uint64_t last() const { return last_; }

    /// What a subscriber to `patterns` gets that knows the messages up to `number`: if some of those after
    /// it, on whatever channel, are not kept, first one notice on "/connector/gap" that they are among those
    /// from one number to another, and how large they were, `{"from": , "to": , "bytes": }`; then what is
    /// kept. The size is too high for a `number` further back than the last 100,000 losses, but not for 0. A
    /// number but 0 from before the first one has missed messages of an earlier log, whose size is not known;
    /// one that was never given counts as 0.
    std::vector<Frame> after(std::uint64_t number, const std::vector<std::string>& patterns) const;

private:
    struct Entry {
        std::uint64_t number;
        Frame frame;
    };
    struct Lost {
        std::uint64_t number = 0;
        std::uint64_t bytes = 0;  // of data
    };
    using Entries = std::list<Entry>;

    struct Group {
        std::deque<Entries::iterator> entries;
        std::size_t bytes = 0;
    };

    void dropOldest(Group& group);
    Frame gapAfter(std::uint64_t number) const;

    const std::size_t limit_;
    const std::uint64_t first_;
    std::uint64_t last_;
    Entries entries_;
    std::unordered_map<std::string, Group> groups_;  // by loss class

    std::deque<Lost> lost_;  // in the order in which they went
    Lost forgotten_;         // those that are not known singly any more: the highest number, and all bytes
};

}  // namespace messages
