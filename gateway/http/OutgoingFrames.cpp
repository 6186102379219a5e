#include "http/OutgoingFrames.h"

#include <algorithm>
#include <utility>

namespace gateway::http {

namespace asio = boost::asio;

namespace {

constexpr std::size_t joinedBytes = std::size_t{64} << 10;

}  // namespace

OutgoingFrames::Batch OutgoingFrames::take() {
    auto& queue = replies_.empty() ? deliveries_ : replies_;
    Batch batch{.frame = std::move(queue.front()), .queuedBytes = 0, .isReply = &queue == &replies_};
    queue.pop_front();
    batch.queuedBytes = batch.frame.size();
    while (!queue.empty() && !batch.frame.empty() && !queue.front().empty() &&
           batch.queuedBytes + queue.front().size() <= joinedBytes) {
        batch.frame.add(queue.front());
        batch.queuedBytes += queue.front().size();
        queue.pop_front();
    }
    return batch;
}

void FrameSlices::start(const OutgoingFrames::Frame& frame) {
    text_.assign(1, asio::buffer("[", 1));
    for (const auto& piece : frame.pieces()) {
        if (text_.size() > 1) text_.push_back(asio::buffer(",", 1));
        text_.push_back(asio::buffer(*piece));
    }
    text_.push_back(asio::buffer("]", 1));
    next_ = 0;
}

FrameSlices::Slice FrameSlices::next(std::size_t maxBytes) {
    slice_.clear();
    while (!isAtEnd() && maxBytes > 0) {
        auto& rest = text_[next_];
        const std::size_t size = std::min(rest.size(), maxBytes);
        slice_.push_back(asio::buffer(rest, size));
        maxBytes -= size;
        rest += size;
        if (rest.size() == 0) ++next_;
    }
    return {slice_.data(), slice_.data() + slice_.size()};
}

}  // namespace gateway::http
