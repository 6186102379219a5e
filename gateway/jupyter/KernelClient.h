#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "jupyter/KernelSocket.h"
#include "jupyter/OutgoingMessage.h"

namespace gateway::jupyter {

/// What is on the way to one front end, over a WebSocket or until it comes back with another one.
///
/// Beyond 8 MiB (4 MiB while it is away) the oldest texts go, and a notice stands in their place. For one
/// that is away other output follows, and answers when there is nothing else; one that is here and does not
/// take 64 MiB has its socket closed, and is away then.
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

    /// It has sent a message of this "session", by which what its cells cause is known. A relay has one for
    /// each of its own clients; of more than 64, those that were quiet for longest are forgotten.
    void noteSession(std::string_view session);
    bool hasSession(std::string_view session) const;

private:
    struct Entry {
        MessagePtr message;    ///< null in the place of those that are lost
        std::string parent{};  ///< of the first of these
        std::size_t lostBytes = 0;
    };

    /// Loses what is of no higher rank.
    void makeRoom(std::size_t bytes, OutgoingMessage::Rank highest);

    std::shared_ptr<KernelSocket> socket_;
    std::shared_ptr<const access::Grant> grant_;  // as long as it may come back
    Clock::time_point awaySince_{};
    std::vector<std::string> sessions_;  // the latest at the end
    std::deque<Entry> waiting_;
    std::size_t bytes_ = 0;  // of what waits
};

}  // namespace gateway::jupyter
