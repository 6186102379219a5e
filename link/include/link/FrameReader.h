#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string_view>
#include <utility>

#include "link/Frame.h"

namespace links {

struct FrameHeader;

/// Makes frames of the bytes of one direction of a link, and joins the pieces of each.
///
/// Each byte of a head or body is copied once, to where it stays. A frame whose pieces are missing yet costs
/// what has come of it: 64 such frames and 1 GiB of their bodies at most.
///
/// Threads: one at a time.
class FrameReader {
public:
    using Take = std::function<void(Frame&&)>;

    /// Takes `bytes` as they came and calls `take` for each frame that is whole by them, in the order of
    /// their last pieces. `take` must not call this. Throws: BadFrame, when the link has to be broken;
    /// std::bad_alloc; whatever `take` throws. After any of these the reader is of no further use.
    void feed(std::string_view bytes, const Take& take);

private:
    using Key = std::pair<Kind, std::uint64_t>;

    bool readHeader(std::string_view& bytes);
    void beginPiece(const FrameHeader& header);
    void endPiece(const Take& take);

    std::array<char, 16> header_{};
    std::size_t headerRead_ = 0;

    // The piece whose header has been read.
    Frame* frame_ = nullptr;  // what it belongs to: first_, or one of unfinished_
    bool hasMore_ = false;
    std::size_t headLeft_ = 0;
    std::size_t bodyLeft_ = 0;

    Frame first_;  // the frame whose first piece is being read
    std::map<Key, Frame> unfinished_;
    std::size_t unfinishedBytes_ = 0;  // of their bodies
};

}  // namespace links
