#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <sys/uio.h>

#include "FrameHeader.h"
#include "link/Frame.h"

namespace links {

/// What a Frame counts for: who bounds the number of such frames.
enum class FrameClass { Answered, Kept, MayBeLost };

FrameClass classOf(const Frame& frame);

/// Frames on their way to a socket, in the order of FrameWriter.
///
///     push() --> frames_ --cut--> wire_ --consume()-->
///                   |               ^
///                   +--> rests_ ----+      a large Response, once its first piece is in wire_
///
/// The order of wire_ is settled; it holds little more than one call to the socket takes, so what is pushed
/// while a large Response is under way waits for little of it.
///
/// Threads: one at a time.
class FrameQueue {
public:
    static constexpr std::size_t maxPieces = 64;  // in one call to the socket
    /// A piece is a header, a head and a part of a body.
    using Parts = std::array<iovec, 3 * maxPieces>;

    void push(Frame&& frame);
    bool isEmpty() const { return wire_.empty() && frames_.empty() && rests_.empty(); }

    /// What is to be sent next, as parts of `parts`; valid until consume().
    std::span<iovec> next(Parts& parts);
    /// `bytes` of what next() returned have been sent. Large bodies that are no longer needed are moved to
    /// `done`, since it takes a while to free them.
    void consume(std::size_t bytes, std::vector<std::string>& done);
    void clear();

    /// What the frames of a class cost, in bytes of memory.
    std::size_t bytes(FrameClass frameClass) const { return bytes_[static_cast<std::size_t>(frameClass)]; }

private:
    struct Entry {
        Frame frame;
        std::size_t cut = 0;  // bytes of the body that are in pieces already
    };
    struct Piece {
        std::shared_ptr<Entry> entry;
        FrameHeader::Bytes header;
        std::size_t headBytes;
        std::size_t from;  // in the body
        std::size_t bodyBytes;
        bool isFirst;
        bool isLast;

        std::size_t size() const { return header.size() + headBytes + bodyBytes; }
    };
    using Entries = std::deque<std::shared_ptr<Entry>>;

    void cutPiece();
    void addPiece(const std::shared_ptr<Entry>& entry);

    Entries frames_;
    Entries rests_;  // take turns
    std::deque<Piece> wire_;
    std::size_t wireBytes_ = 0;
    std::size_t sentOfFront_ = 0;
    std::size_t sinceRest_ = 0;  // bytes of frames_ that were cut since it was the turn of rests_
    std::array<std::size_t, 3> bytes_{};
};

}  // namespace links
