#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "link/Frame.h"

namespace links {

/// What stands before the head and the body of each piece, little endian: 4 bytes how many follow, 1 the
/// kind, 1 flags (1 more pieces follow, 2 may be lost), 2 bytes of head, 8 id.
struct FrameHeader {
    static constexpr std::size_t size = 16;
    using Bytes = std::array<char, size>;

    Kind kind{};
    bool hasMore = false;
    bool mayBeLost = false;
    std::size_t headBytes = 0;
    std::size_t bodyBytes = 0;
    std::uint64_t id = 0;

    Bytes encode() const;
    /// Throws: BadFrame, when no piece begins like this.
    static FrameHeader decode(const Bytes& bytes);
};

}  // namespace links
