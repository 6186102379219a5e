#pragma once

#include <cstdint>
#include <string_view>

namespace messages {

class MessageFrame;

/// What a message says of the request that has caused it: what the service has added to it. All are empty, or
/// 0, for a message with an "ext" of its publisher's own.
struct FrameOrigin {
    std::string_view request;  ///< its name
    std::uint64_t prompt = 0;  ///< the number of the prompt that the message tells of
    std::string_view death;    ///< how the process that it ran in has ended: a JSON object

    /// Looks at what comes after the data, not into that. It is valid as long as the frame.
    static FrameOrigin of(const MessageFrame& frame);
};

}  // namespace messages
