#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <string>

#include "jupyter/KernelSocket.h"
#include "jupyter/OutgoingMessage.h"

namespace gateway::jupyter {

/// What is on the way to one front end, over a WebSocket or until it comes back with another one.
///
/// Beyond 8 MiB (4 MiB while it is away) the oldest texts go, and a notice stands in their place. What else
/// there is goes beyond 4 MiB for one that is away; one that is here and does not take 64 MiB has its socket
/// closed, and is away then.
///
/// Threads: on the executor of the room.
class KernelClient {
public:
    using Clock = std::chrono::steady_clock;
    using MessagePtr = std::shared_ptr<OutgoingMessage>;

    /// A new socket takes the place of the one before, which is closed.
    void attach(std::shared_ptr<KernelSocket> socket);
    /// False when it has another socket by now.
    bool detach(const KernelSocket& socket);
    bool isAway() const { return socket_ == nullptr; }
    Clock::time_point awaySince() const { return awaySince_; }

    void push(MessagePtr message);
    /// Hands over what the socket takes.
    void pump();
    void close(std::uint16_t code);

    /// Whether code should wait before it prints more: there is much, and the client goes on reading.
    bool isWaitedFor(std::chrono::milliseconds patience) const;

    /// By which what its cells have caused is known: the "session" in its headers.
    void setCellSession(std::string_view session) { cellSession_ = session; }
    const std::string& cellSession() const { return cellSession_; }

private:
    struct Entry {
        MessagePtr message;  ///< of a notice: the first that is lost
        std::size_t lostBytes = 0;
    };

    void makeRoom(std::size_t bytes, bool isTextOnly);

    std::shared_ptr<KernelSocket> socket_;
    Clock::time_point awaySince_{};
    std::string cellSession_;
    std::deque<Entry> waiting_;
    std::size_t bytes_ = 0;  // of what waits
};

}  // namespace gateway::jupyter
