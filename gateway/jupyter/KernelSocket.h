#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "access/Grant.h"
#include "sockets/Speaker.h"

namespace gateway::jupyter {

class KernelRoom;
class OutgoingMessage;

/// One WebSocket of a notebook front end: decodes what it says for the room of its kernel, and writes what
/// comes from there in the encoding that it has chosen.
///
/// Threads: as Speaker; what is for the room, on its executor.  Owns: shares the room.
class KernelSocket : public sockets::Speaker, public std::enable_shared_from_this<KernelSocket> {
public:
    using Clock = std::chrono::steady_clock;

    struct Peer {
        std::string session;                         ///< by which it is known when it comes back
        std::shared_ptr<const access::Grant> grant;  ///< its address is in that, and is not to be another's
        bool comesBack;                              ///< it has named the session itself
        bool mayRestart;
    };

    KernelSocket(std::shared_ptr<KernelRoom> room, Peer peer, std::size_t frameBytes);
    ~KernelSocket() override;

    std::string chosen(const std::vector<std::string_view>& offered) override;
    void opened(const std::shared_ptr<sockets::FrameSocket>& socket) override;
    void received(std::string data, bool isText) override;
    void progressed() override { lastProgress_ = Clock::now(); }
    void drained() override;
    void closed() override;
    std::size_t maxFrameBytes() const override { return frameBytes_; }
    bool isTrusted() const override { return true; }

    // For the room.

    const Peer& peer() const { return peer_; }
    /// Whether it takes more now; if not, the room is told when it does again.
    bool hasRoom();
    std::size_t unsentBytes() const;
    Clock::time_point lastProgress() const { return lastProgress_; }
    void send(OutgoingMessage& message);
    /// The codes 1000 and 1001 are for good: front ends do not come back then.
    void close(std::uint16_t code);

private:
    const std::shared_ptr<KernelRoom> room_;
    const Peer peer_;
    const std::size_t frameBytes_;
    bool isV1_ = false;                           // fixed once open
    std::weak_ptr<sockets::FrameSocket> socket_;  // fixed once open
    std::atomic<bool> isRoomWanted_{false};
    std::atomic<std::size_t> unhandledBytes_{0};  // of what is on the way to the room
    std::atomic<Clock::time_point> lastProgress_{Clock::now()};
};

}  // namespace gateway::jupyter
