#include "FrameQueue.h"

#include <algorithm>
#include <utility>

namespace links {

namespace {

// More large Responses at once go whole, so that the reader's bound on unfinished frames holds.
constexpr std::size_t maxRests = 32;

constexpr std::size_t overheadBytes = 256;  // of a queued frame

iovec partOf(const char* data, std::size_t size) { return {const_cast<char*>(data), size}; }

}  // namespace

FrameClass classOf(const Frame& frame) {
    const bool isAnswered = frame.kind == Kind::Request || frame.kind == Kind::Response ||
                            (frame.kind == Kind::Message && frame.id != 0);
    if (isAnswered) return FrameClass::Answered;
    return frame.mayBeLost ? FrameClass::MayBeLost : FrameClass::Kept;
}

void FrameQueue::push(Frame&& frame) {
    auto& bytes = bytes_[static_cast<std::size_t>(classOf(frame))];
    const std::size_t cost = overheadBytes + frame.head.size() + frame.body.size();
    frames_.push_back(std::make_shared<Entry>(Entry{std::move(frame)}));
    bytes += cost;
}

std::span<iovec> FrameQueue::next(Parts& parts) {
    while (wire_.size() < maxPieces && wireBytes_ < maxPieceBytes && !(frames_.empty() && rests_.empty()))
        cutPiece();
    std::size_t count = 0;
    std::size_t skip = sentOfFront_;
    const auto add = [&](const char* data, std::size_t size) {
        const std::size_t skipped = std::min(skip, size);
        skip -= skipped;
        if (size > skipped) parts[count++] = partOf(data + skipped, size - skipped);
    };
    for (const Piece& piece : wire_) {
        add(piece.header.data(), piece.header.size());
        add(piece.entry->frame.head.data(), piece.headBytes);
        add(piece.entry->frame.body.data() + piece.from, piece.bodyBytes);
    }
    return {parts.data(), count};
}

void FrameQueue::cutPiece() {
    const bool isTurnOfRests = !rests_.empty() && (frames_.empty() || sinceRest_ >= maxPieceBytes);
    Entries& from = isTurnOfRests ? rests_ : frames_;
    const auto entry = from.front();
    addPiece(entry);
    sinceRest_ = isTurnOfRests ? 0 : sinceRest_ + wire_.back().size();
    const bool mayAlternate =
        isTurnOfRests || (entry->frame.kind == Kind::Response && rests_.size() < maxRests);
    if (!wire_.back().isLast) {
        if (!mayAlternate) return;
        rests_.push_back(entry);
    }
    from.pop_front();
}

void FrameQueue::addPiece(const std::shared_ptr<Entry>& entry) {
    const Frame& frame = entry->frame;
    Piece piece{.entry = entry,
                .header = {},
                .headBytes = 0,
                .from = entry->cut,
                .bodyBytes = 0,
                .isFirst = entry->cut == 0,
                .isLast = false};
    piece.bodyBytes = std::min(frame.body.size() - piece.from, maxPieceBytes);
    piece.isLast = piece.from + piece.bodyBytes == frame.body.size();
    if (piece.isFirst) piece.headBytes = frame.head.size();
    piece.header = FrameHeader{.kind = frame.kind,
                               .hasMore = !piece.isLast,
                               .mayBeLost = frame.mayBeLost,
                               .headBytes = piece.headBytes,
                               .bodyBytes = piece.bodyBytes,
                               .id = frame.id}
                       .encode();
    wireBytes_ += piece.size();
    entry->cut += piece.bodyBytes;
    wire_.push_back(std::move(piece));
}

void FrameQueue::consume(std::size_t bytes, std::vector<std::string>& done) {
    wireBytes_ -= bytes;
    sentOfFront_ += bytes;
    while (!wire_.empty() && sentOfFront_ >= wire_.front().size()) {
        Piece& piece = wire_.front();
        Frame& frame = piece.entry->frame;
        sentOfFront_ -= piece.size();
        bytes_[static_cast<std::size_t>(classOf(frame))] -=
            (piece.isFirst ? overheadBytes : 0) + piece.headBytes + piece.bodyBytes;
        if (piece.isLast && frame.body.size() > maxPieceBytes) done.push_back(std::move(frame.body));
        wire_.pop_front();
    }
}

void FrameQueue::clear() {
    frames_.clear();
    rests_.clear();
    wire_.clear();
    wireBytes_ = sentOfFront_ = sinceRest_ = 0;
    bytes_ = {};
}

}  // namespace links
