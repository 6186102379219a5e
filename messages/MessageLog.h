#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
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
/// Of what went it knows the last 100,000 singly, with 4 MiB of names of channels at most, and the earlier
/// ones as a sum for each loss class.
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
    /// it that a pattern matches are not kept, first one notice on "/connector/gap" of the first and the last
    /// of them and how large they were, `{"from": , "to": , "bytes": }`; then what is kept. Losses that are
    /// not known singly count when a pattern can match their loss class: the notice then says too much rather
    /// than too little. A number but 0 from before the first one has missed messages of an earlier log, whose
    /// channels and size are not known; one that was never given counts as 0.
    std::vector<Frame> after(std::uint64_t number, const std::vector<std::string>& patterns) const;

private:
    struct Entry {
        std::uint64_t number;
        Frame frame;
    };
    struct Missing {
        std::uint64_t from = 0;  // the lowest number; 0 when there is none
        std::uint64_t to = 0;
        std::uint64_t bytes = 0;  // of data

        void add(const Missing& other);
    };
    using Entries = std::list<Entry>;

    struct Group {
        std::deque<Entries::iterator> entries;
        std::size_t bytes = 0;
        Missing forgotten;  // those that are not known singly any more
    };
    struct Channel {
        Group* group = nullptr;
        std::size_t losses = 0;  // that are known singly
    };
    using Channels = std::map<std::string, Channel, std::less<>>;
    struct Lost {
        std::uint64_t number;
        std::uint64_t bytes;  // of data
        Channels::iterator channel;
    };

    void dropOldest(Group& group);
    void noteLoss(const MessageFrame& frame, Group& group);
    void forgetOldestLoss();
    Missing missingAfter(std::uint64_t number, const std::vector<std::string>& patterns) const;

    const std::size_t limit_;
    const std::uint64_t first_;
    std::uint64_t last_;
    Entries entries_;
    std::unordered_map<std::string, Group> groups_;  // by loss class

    std::deque<Lost> lost_;         // in the order in which they went
    Channels channels_;             // of lost_
    std::size_t channelBytes_ = 0;  // what these take
};

}  // namespace messages
