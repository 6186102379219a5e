#pragma once

/// Messages in frames of a WebSocket, as front ends of Jupyter servers write them.
/// Threads: any.

#include <string>
#include <string_view>

#include "jupyter/Message.h"

namespace jupyter::wire {

/// The subprotocol of the encoding V1; without it messages are in the Default encoding.
inline constexpr std::string_view webSocketV1 = "v1.kernel.websocket.jupyter.org";

struct WebSocketFrame {
    std::string data;
    bool isText = true;
};

/// Default: JSON text or, with buffers, binary: the number of parts and their offsets as 32-bit big endian
/// numbers, the JSON, the buffers.
WebSocketFrame encodeDefault(const Message& message);
/// V1, binary: the number of offsets and the offsets as 64-bit little endian numbers, then channel, header,
/// parent, metadata, content and buffers.
WebSocketFrame encodeV1(const Message& message);

/// The way back; the route is left empty. The JSON is not looked into further than `rawMembers` does.
/// Throws: std::invalid_argument, for what is no message, with what must be.
Message decodeDefault(std::string_view data, bool isText);
Message decodeV1(std::string_view data);

}  // namespace jupyter::wire
