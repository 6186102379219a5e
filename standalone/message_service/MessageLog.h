#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "standalone/MessageFrame.h"

namespace standalone {

/// Keeps what was published last, numbered from 1, for clients that ask for what they missed.
///
/// What may be lost goes first, when there is more of it than the limit; the newest frame stays, however
/// large. The others stay until there are too many of them.
///
/// Threads: one at a time.
class MessageLog {
public:
    using Frame = std::shared_ptr<const MessageFrame>;

    /// `limit`: of the data that may be lost, in bytes.
    explicit MessageLog(std::size_t limit) : limit_(limit) {}

    /// Makes the frame of the next message, which carries its number: `"ext":{"connector":{"seq":N}}`.
    Frame add(std::string_view channel, std::string_view data, std::string_view lossClass);

    /// What a subscriber to `pattern` gets that knows the messages up to `number`: if some of those behind
    /// it, on whatever channel, are not kept, first one notice on "/connector/gap" that they are among those
    /// from one number to another, and how large they were, `{"from": , "to": , "bytes": }`; then what is
    /// kept. The size is too high for a `number` further back than the last 100,000 losses, but not for 0.
    std::vector<Frame> after(std::uint64_t number, const std::string& pattern) const;

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

    void dropOldest(Entries::iterator entry);
    Frame gapAfter(std::uint64_t number) const;

    const std::size_t limit_;
    std::uint64_t last_ = 0;
    Entries entries_;
    std::deque<Entries::iterator> droppable_;
    std::size_t droppableBytes_ = 0;

    std::deque<Lost> lost_;  // in the order in which they went
    Lost forgotten_;         // those that are not known singly any more: the highest number, and all bytes
};

}  // namespace standalone
