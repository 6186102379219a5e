#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>

namespace gateway::http {

/// The text frames that wait to be written to a WebSocket. Replies go before deliveries. Each frame is a JSON
/// array; several small ones are joined into one.
///
/// Threads: one at a time.
class OutgoingFrames {
public:
    using Frame = std::shared_ptr<const std::string>;

    void push(Frame frame, bool isReply) { (isReply ? replies_ : deliveries_).push_back(std::move(frame)); }
    bool empty() const { return replies_.empty() && deliveries_.empty(); }

    /// What is to be written next.
    struct Batch {
        Frame frame;
        std::size_t queuedBytes = 0;  ///< of the frames that are in it
        bool isReply = false;
    };
    /// Must not be empty.
    Batch take();

private:
    std::deque<Frame> replies_;
    std::deque<Frame> deliveries_;
};

}  // namespace gateway::http
