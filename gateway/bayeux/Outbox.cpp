#include "bayeux/Outbox.h"

#include <algorithm>

#include "bayeux/channelRules.h"
#include "foundation/log/diagnostic_logger.h"

namespace gateway::bayeux {

using messages::MessageFrame;

namespace {

// Shares the text of the frame.
void append(MessageArray& deliveries, const std::shared_ptr<const MessageFrame>& frame) {
    deliveries.add(MessageArray::Piece(frame, &frame->text()));
}

// Services in the process may publish on channels that a client's library cannot take: it would lose what
// comes with the message.
bool canBeDelivered(const MessageFrame& frame) {
    if (isPortableName(frame.channel())) return true;
    foundation::log::DiagnosticLogger("gateway::bayeux")
        .debug("A message is not delivered, because of its channel: " + std::string(frame.channel()));
    return false;
}

}  // namespace

void Outbox::acknowledge(std::uint64_t batch) {
    while (!unacknowledged_.empty() && unacknowledged_.front().batch <= batch) {
        unacknowledgedBytes_ -= unacknowledged_.front().frame->text().size();
        unacknowledged_.pop_front();
    }
}

void Outbox::delivered() {
    if (isAcknowledged_) return;
    unacknowledged_.clear();
    unacknowledgedBytes_ = 0;
}

MessageArray Outbox::next(std::size_t maxBytes) {
    MessageArray deliveries;
    for (const auto& sent : unacknowledged_) append(deliveries, sent.frame);
    const std::size_t room = std::min(maxBytes, replyBytes_);
    if (unacknowledgedBytes_ < room) take(room - unacknowledgedBytes_, deliveries);
    return deliveries;
}

void Outbox::take(std::size_t maxBytes, MessageArray& deliveries) {
    for (;;) {
        const auto taken = queue_->take(maxBytes, std::chrono::milliseconds(0));
        for (const auto& frame : taken.frames) {
            if (!canBeDelivered(*frame)) continue;
            append(deliveries, frame);
            unacknowledged_.push_back({closedBatches_ + 1, frame});
            unacknowledgedBytes_ += frame->text().size();
        }
        if (!deliveries.empty() || taken.frames.empty()) return;
    }
}

}  // namespace gateway::bayeux
