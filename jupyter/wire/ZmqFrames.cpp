#include "jupyter/wire/ZmqFrames.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "foundation/log/diagnostic_logger.h"

namespace jupyter::wire {

namespace {

constexpr std::string_view delimiter = "<IDS|MSG>";
constexpr const char* topic = "kernel";  // clients subscribe to all
constexpr std::ptrdiff_t fixedFrames = 6;

const foundation::log::DiagnosticLogger& log() {
    static const foundation::log::DiagnosticLogger instance("jupyter::messages");
    return instance;
}

bool isTold(std::uint64_t count) {
    if (count <= 10) return true;
    while (count % 10 == 0) count /= 10;
    return count == 1;
}

}  // namespace

std::vector<std::string> ZmqFrames::encode(const Message& message) const {
    std::vector<std::string> frames = message.route;
    if (message.channel == Channel::Iopub) frames = {topic};
    frames.insert(frames.end(), {std::string(delimiter), signature_.of(message), message.header,
                                 message.parent, message.metadata, message.content});
    frames.insert(frames.end(), message.buffers.begin(), message.buffers.end());
    return frames;
}

std::nullopt_t ZmqFrames::drop(Channel channel, std::string_view reason) {
    if (isTold(++dropped_)) {
        log().warning("A message on " + std::string(nameOf(channel)) + " is dropped: " + std::string(reason) +
                      (dropped_ > 10 ? " (" + std::to_string(dropped_) + " so far)." : "."));
    }
    return std::nullopt;
}

bool ZmqFrames::remember(std::string_view signature) {
    const std::uint64_t hash = std::hash<std::string_view>()(signature);
    if (!known_.insert(hash).second) return false;
    order_.push_back(hash);
    if (order_.size() > signatures) {
        known_.erase(order_.front());
        order_.pop_front();
    }
    return true;
}

std::optional<Message> ZmqFrames::decode(Channel channel, std::vector<std::string> frames) {
    const auto begin = std::ranges::find(frames, delimiter);
    if (begin == frames.end()) return drop(channel, "it has no frame <IDS|MSG>");
    if (frames.end() - begin < fixedFrames) return drop(channel, "it has too few frames");
    Message message{.channel = channel,
                    .route = {std::move_iterator(frames.begin()), std::move_iterator(begin)},
                    .header = std::move(begin[2]),
                    .parent = std::move(begin[3]),
                    .metadata = std::move(begin[4]),
                    .content = std::move(begin[5]),
                    .buffers = {std::move_iterator(begin + fixedFrames), std::move_iterator(frames.end())}};
    if (!signature_.isOf(message, begin[1])) return drop(channel, "its signature is wrong");
    if (signature_.hasKey() && !remember(begin[1])) return drop(channel, "its signature came before");
    return message;
}

}  // namespace jupyter::wire
