#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>

#include "bayeux/MessageArray.h"
#include "messages/ClientSession.h"

namespace gateway::bayeux {

/// Takes the deliveries of one session from its queue, no more at a time than one reply holds, so that what
/// waits stays under the rules of the queue.
///
/// With the acknowledge extension every reply to a connect closes a batch and carries its number. A delivery
/// belongs to the batch of the first reply that it was in; it is repeated in every reply until the client
/// acknowledges that batch. Without the extension it is repeated until a reply with it is written.
///
/// Threads: one at a time.
class Outbox {
public:
    Outbox(std::shared_ptr<messages::ClientSession> queue, bool isAcknowledged, std::size_t replyBytes)
        : queue_(std::move(queue)), isAcknowledged_(isAcknowledged), replyBytes_(replyBytes) {}

    bool isAcknowledged() const { return isAcknowledged_; }
    /// The client has got the batches up to this number.
    void acknowledge(std::uint64_t batch);

    /// What was taken is written. Without the extension that is the end of it.
    void delivered();

    /// The deliveries for the next reply; or for the next frame, which holds no more than `maxBytes`.
    MessageArray next(std::size_t maxBytes = SIZE_MAX);
    /// Ends the batch that `next` has been called for. Returns its number, from 1.
    std::uint64_t closeBatch() { return ++closedBatches_; }

private:
    struct Sent {
        std::uint64_t batch;
        std::shared_ptr<const messages::MessageFrame> frame;
    };

    void take(std::size_t maxBytes, MessageArray& deliveries);

    const std::shared_ptr<messages::ClientSession> queue_;
    const bool isAcknowledged_;
    const std::size_t replyBytes_;
    std::deque<Sent> unacknowledged_;
    std::size_t unacknowledgedBytes_ = 0;
    std::uint64_t closedBatches_ = 0;
};

}  // namespace gateway::bayeux
