#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "jupyter/Message.h"
#include "jupyter/wire/Signature.h"

namespace jupyter::wire {

/// Messages as the frames of ZeroMQ: the identities of the route, or a topic, "<IDS|MSG>", the signature, the
/// four parts, the buffers.
///
/// What is no message, or is not signed as it must be, or carries a signature that came before, is dropped:
/// the log has a line for each of the first ten, and for every tenth, hundredth ... after them.
///
/// Threads: one at a time.
class ZmqFrames {
public:
    /// So many signatures are remembered.
    static constexpr std::size_t signatures = 65'536;

    explicit ZmqFrames(Signature signature) : signature_(std::move(signature)) {}

    std::vector<std::string> encode(const Message& message) const;
    /// Nothing for what is dropped.
    std::optional<Message> decode(Channel channel, std::vector<std::string> frames);

private:
    std::nullopt_t drop(Channel channel, std::string_view reason);
    /// False when it came before.
    bool remember(std::string_view signature);

    const Signature signature_;
    // As hashes: of 65,536 random numbers of 64 bits no two are equal.
    std::unordered_set<std::uint64_t> known_;
    std::deque<std::uint64_t> order_;
    std::uint64_t dropped_ = 0;
};

}  // namespace jupyter::wire
