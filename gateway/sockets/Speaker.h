#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bayeux/MessageArray.h"

namespace gateway::sockets {

/// A frame on its way to a client.
struct OutgoingFrame {
    enum class Form {
        Array,  ///< the JSON array of the pieces, which may be joined with the next one
        Text,   ///< the pieces as they are
        Binary,
    };
    bayeux::MessageArray pieces;
    Form form = Form::Array;
    bool isReply = false;  ///< goes before those that are none
};

/// A WebSocket, as whoever speaks over it sees it.
///
/// Threads: every operation from any thread, perhaps shortly after `Speaker::closed`. None calls the speaker
/// before it returns.
class FrameSocket {
public:
    virtual ~FrameSocket() = default;

    /// Frames go out in the order of the calls, but for replies.
    virtual void send(OutgoingFrame frame) = 0;
    /// How many bytes given to `send` are not written yet: counted before it returns.
    virtual std::size_t unsentBytes() const = 0;
    /// Closes once what was given to `send` is written.
    virtual void close(std::uint16_t code) = 0;
};

/// Who speaks over a WebSocket: a protocol.
///
///     made -- opened --> speaking -- closed --> over
///
/// Threads: one operation at a time, and `received` while it has not returned perhaps beside others; the two
/// questions from any thread.
class Speaker {
public:
    virtual ~Speaker() = default;

    /// The subprotocol, of those that the client offers; empty for none.
    virtual std::string chosen(const std::vector<std::string_view>& offered) = 0;
    virtual void opened(const std::shared_ptr<FrameSocket>& socket) = 0;
    /// A whole frame, after which the next is read. What it throws is logged, and closes the socket.
    virtual void received(std::string data, bool isText) = 0;
    /// All is received that has come.
    virtual void endReadTurn() {}
    /// The network has taken a part of a frame.
    virtual void progressed() {}
    /// `unsentBytes` has become smaller.
    virtual void drained() {}
    virtual void closed() = 0;

    /// How large the next frame may be; a larger one closes the socket with 1009.
    virtual std::size_t maxFrameBytes() const = 0;
    /// Whether the client has shown the token, or what stands for it.
    virtual bool isTrusted() const = 0;
};

}  // namespace gateway::sockets
