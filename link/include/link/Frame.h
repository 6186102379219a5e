#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace links {

/// What a frame says. Its head is the struct of messages.h that is named here, or what is said.
enum class Kind : std::uint8_t {
    Hello = 1,  ///< Worker: its first frame. Head: Hello.
    Start,      ///< Gateway: the answer to it. Head: Start.
    Listen,     ///< Worker: clients' messages that match a pattern are wanted. Head: the pattern.
    Unlisten,   ///< Worker: they are no longer. Head: the pattern.
    Watch,      ///< Worker: subscriptions that match a pattern are wanted. Id: the watch; head: the pattern.
    Unwatch,    ///< Worker: they are no longer. Id: the watch; head: the pattern.
    Ready,      ///< Worker: it takes requests. No head.
    Request,    ///< Gateway. Head: RequestHead; body: JSON.
    Response,  ///< Worker: the answer to the Request or Interrupt of that id. Head: ResponseHead; body: JSON.
    Message,   ///< Gateway: a client has published. Id: 0, or that of the Reply and the Ended. Head:
               ///< MessageHead.
    Reply,     ///< Worker: the Message of that id was taken or refused. Head: ReplyHead.
    Ended,     ///< Worker: the request that came in the Message of that id has ended. No head.
    Notice,    ///< Gateway: a subscription has begun or ended. Id: the watch; head: NoticeHead.
    NoticesEnd,  ///< Gateway: the watch has been told what was subscribed before it. Id: the watch. No head.
    Pace,        ///< Gateway: a client has fallen behind or caught up. Id: the client; head: PaceHead.
    Publish,     ///< Worker. Head: PublishHead; body: JSON.
    State,       ///< Worker: what the interpreter does. Head: StateHead.
    Log,         ///< Worker: a line of its log. Head: LogHead; body: text.
    Interrupt,   ///< Gateway, on control. Head: RequestHead; body: JSON.
    Ping,        ///< Gateway, on control. Head: PingHead.
    Pong,        ///< Worker, on control. Id: that of the Ping; head: PongHead.
    Stop,        ///< Gateway, on control. Head: StopHead.
};

/// One whole frame, however many pieces it travels in. The link does not read `body`.
struct Frame {
    Kind kind{};
    std::uint64_t id = 0;
    bool mayBeLost = false;
    std::string head{};
    std::string body{};
};

/// The peer has sent what is no frame, or a head that is none of its kind: the link has to be broken.
class BadFrame : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

inline constexpr std::size_t maxHeadBytes = 0xFFFF;
inline constexpr std::size_t maxPieceBytes = std::size_t{256} << 10;  ///< of the body, in one piece
inline constexpr std::size_t maxBodyBytes = std::size_t{1} << 30;

}  // namespace links
