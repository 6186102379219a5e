#include "http/OutgoingFrames.h"

#include <algorithm>
#include <utility>

namespace gateway::http {

namespace asio = boost::asio;

namespace {

// The library writes 64 KiB at a time, with the head of a frame.
constexpr std::size_t joinedBytes = std::size_t{60} << 10;
constexpr std::size_t copiedBytes = joinedBytes;
constexpr std::size_t largePieceBytes = std::size_t{8} << 10;

bool isJoined(const OutgoingFrames::Frame& frame) {
    return frame.form == OutgoingFrames::Frame::Form::Array && !frame.pieces.empty();
}

}  // namespace

OutgoingFrames::Batch OutgoingFrames::take() {
    auto& queue = replies_.empty() ? deliveries_ : replies_;
    Batch batch{.frame = std::move(queue.front()), .queuedBytes = 0};
    queue.pop_front();
    batch.queuedBytes = batch.frame.pieces.size();
    while (!queue.empty() && isJoined(batch.frame) && isJoined(queue.front()) &&
           batch.queuedBytes + queue.front().pieces.size() <= joinedBytes) {
        batch.frame.pieces.add(queue.front().pieces);
        batch.queuedBytes += queue.front().pieces.size();
        queue.pop_front();
    }
    return batch;
}

void FrameSlices::start(const OutgoingFrames::Frame& frame) {
    const bool isArray = frame.form == OutgoingFrames::Frame::Form::Array;
    text_.clear();
    if (isArray) text_.push_back(asio::buffer("[", 1));
    for (const auto& piece : frame.pieces.pieces()) {
        if (isArray && text_.size() > 1) text_.push_back(asio::buffer(",", 1));
        text_.push_back(asio::buffer(*piece));
    }
    if (isArray) text_.push_back(asio::buffer("]", 1));
    next_ = 0;
    size_ = frame.pieces.size();
}

FrameSlices::Slice FrameSlices::next(std::size_t maxBytes) {
    slice_.clear();
    copied_.clear();
    while (!isAtEnd() && maxBytes > 0) {
        auto& rest = text_[next_];
        const auto piece = asio::buffer(rest, maxBytes);
        if (rest.size() >= largePieceBytes) {
            slice_.push_back(piece);
        } else if (!copy(piece)) {
            break;
        }
        maxBytes -= piece.size();
        rest += piece.size();
        if (rest.size() == 0) ++next_;
    }
    return {slice_.data(), slice_.data() + slice_.size()};
}

// False when there is no room left in the slice.
bool FrameSlices::copy(asio::const_buffer piece) {
    if (copied_.size() + piece.size() > copiedBytes) return false;
    if (copied_.empty()) copied_.reserve(std::min(copiedBytes, size_));
    const char* const begin = copied_.data() + copied_.size();
    copied_.append(static_cast<const char*>(piece.data()), piece.size());
    const bool continues =
        !slice_.empty() && static_cast<const char*>(slice_.back().data()) + slice_.back().size() == begin;
    if (continues) {
        slice_.back() = asio::buffer(slice_.back().data(), slice_.back().size() + piece.size());
    } else {
        slice_.push_back(asio::buffer(begin, piece.size()));
    }
    return true;
}

}  // namespace gateway::http
