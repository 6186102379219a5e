#include "http/OutgoingFrames.h"

#include <utility>

namespace gateway::http {

namespace {

constexpr std::size_t joinedBytes = std::size_t{64} << 10;

bool isJoinable(const std::string& frame) {
    return frame.size() > 2 && frame.front() == '[' && frame.back() == ']';
}

}  // namespace

OutgoingFrames::Batch OutgoingFrames::take() {
    auto& queue = replies_.empty() ? deliveries_ : replies_;
    Batch batch{.frame = std::move(queue.front()), .queuedBytes = 0, .isReply = &queue == &replies_};
    queue.pop_front();
    batch.queuedBytes = batch.frame->size();
    std::string joined;
    while (!queue.empty() && isJoinable(*batch.frame) && isJoinable(*queue.front()) &&
           batch.queuedBytes + queue.front()->size() <= joinedBytes) {
        if (joined.empty()) joined.append(*batch.frame);
        joined.back() = ',';
        joined.append(*queue.front(), 1);
        batch.queuedBytes += queue.front()->size();
        queue.pop_front();
    }
    if (!joined.empty()) batch.frame = std::make_shared<const std::string>(std::move(joined));
    return batch;
}

}  // namespace gateway::http
