#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include <boost/asio/buffer.hpp>

#include "sockets/Speaker.h"

namespace gateway::http {

/// The frames that wait to be written to a WebSocket. Replies go before deliveries. Several small ones are
/// arrays are joined into one.
///
/// Threads: one at a time.
class OutgoingFrames {
public:
    using Frame = sockets::OutgoingFrame;

    void push(Frame frame) { (frame.isReply ? replies_ : deliveries_).push_back(std::move(frame)); }
    bool empty() const { return replies_.empty() && deliveries_.empty(); }

    /// What is to be written next.
    struct Batch {
        Frame frame;
        std::size_t queuedBytes = 0;  ///< of the frames that are in it
    };
    /// Must not be empty.
    Batch take();

private:
    std::deque<Frame> replies_;
    std::deque<Frame> deliveries_;
};

/// The text of a frame, cut into slices that are written one after the other. Small pieces are copied into
/// one buffer, which is kept: the library hands no more than 16 buffers to the network at a time. Large ones
/// are written from where they are.
///
/// Threads: one at a time.
class FrameSlices {
public:
    /// Buffers that stay where they are until the next slice: operations copy this, and not them.
    struct Slice {
        using value_type = boost::asio::const_buffer;
        using const_iterator = const value_type*;
        const_iterator begin() const { return first; }
        const_iterator end() const { return last; }

        const_iterator first = nullptr;
        const_iterator last = nullptr;
    };

    /// `frame` is kept by the caller.
    void start(const OutgoingFrames::Frame& frame);
    bool isAtEnd() const { return next_ == text_.size(); }
    Slice next(std::size_t maxBytes);

private:
    bool copy(boost::asio::const_buffer piece);

    std::vector<boost::asio::const_buffer> text_;
    std::size_t next_ = 0;
    std::size_t size_ = 0;  ///< of the whole text
    std::vector<boost::asio::const_buffer> slice_;
    std::string copied_;  ///< of this slice; never moves while there is one
};

}  // namespace gateway::http
