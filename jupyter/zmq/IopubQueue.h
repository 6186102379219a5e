#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <list>
#include <optional>
#include <string>

#include "jupyter/Message.h"

namespace jupyter {

/// What an IopubQueue sends with: each subscriber has room for some messages.
class IopubSocket {
public:
    virtual ~IopubSocket() = default;
    /// False when it takes no message now. Lossless: one subscriber has no room. Blocks: never.
    virtual bool trySend(const Message& message) = 0;
    /// Without it, a subscriber that has no room misses the message, and those that follow until it has read
    /// some.
    virtual void setLossless(bool isLossless) = 0;
};

/// Sends messages to all subscribers, and keeps what they have no room for.
///
///     lossless --+-- a subscriber has no room --> waiting: it is tried again every 2 ms --+-- room -->
///     lossless
///                                                                                         |
///        ^----- nothing is left ----- lossy, 40 messages every 5 ms <-- 10 s, or 64 MiB -+
///
/// Lossy, whoever reads gets everything, since it has room for so many; but beyond 64 MiB there is no pace.
/// The one that has missed something is waited for again when it has read some of what it has.
///
/// Of what waits, neighbouring texts of one parent and stream become one message of at most 256 KiB. Beyond
/// 8 MiB the oldest texts go, and in their place one line on the stream stderr says how much.
///
/// Threads: one at a time.
class IopubQueue {
public:
    using Time = std::chrono::steady_clock::time_point;
    struct Options {
        std::size_t bytes = std::size_t{8} << 20;       ///< more is not kept of texts
        std::size_t mostBytes = std::size_t{64} << 20;  ///< of whatever waits for a subscriber
        std::size_t roomBytes = std::size_t{1} << 20;   ///< of whatever waits, as hasRoom says
        std::size_t mergedBytes = std::size_t{256} << 10;
        std::chrono::milliseconds retry{2};
        std::chrono::milliseconds patience{10'000};
        std::chrono::milliseconds pace{5};
        std::size_t messagesPerPace = 40;
    };

    IopubQueue(IopubSocket& socket, Options options) : socket_(socket), options_(options) {}
    explicit IopubQueue(IopubSocket& socket) : IopubQueue(socket, Options()) {}

    /// Queues it; `send` is to be called then.
    void add(Message message);
    /// Sends what can be sent. When it is to be called again; nothing, when nothing is left.
    std::optional<Time> send(Time now);

    bool isEmpty() const { return entries_.empty(); }
    bool hasRoom() const { return bytes_ < options_.roomBytes; }

private:
    struct Entry {
        Message message;
        std::size_t textBegin = 0;  ///< in its content; 0 for what is no text
        std::size_t lost = 0;       ///< of a notice: characters
    };
    using Entries = std::list<Entry>;

    bool merge(const Message& message, std::size_t textBegin);
    void dropOldestText();
    std::optional<Time> sendPaced(Time now);
    std::optional<Time> wait(Time now);
    void removeFirst();

    IopubSocket& socket_;
    const Options options_;
    Entries entries_;
    std::deque<Entries::iterator> texts_;  ///< the texts among them, the oldest first
    std::size_t bytes_ = 0;
    bool isLossless_ = true;
    std::optional<Time> stuckSince_;  ///< nothing has been sent since
    Time nextPace_;
};

}  // namespace jupyter
