#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "access/Grant.h"
#include "connector/identifiers.h"
#include "jupyter/KernelRoom.h"

namespace gateway::jupyter {

/// The kernel that notebook clients see in an interpreter.
///
/// Threads: every operation from any thread; destroyed when no thread runs the io_context any more, or when
/// it is stopped and unused.
class KernelHost {
public:
    KernelHost(boost::asio::io_context& context, ports::InterpreterPort& port, KernelRoom::Options options)
        : room_(std::make_shared<KernelRoom>(context, port, std::move(options))) {}
    // What is left in the io_context may outlive the port.
    ~KernelHost() {
        if (!isUnused()) room_->stop();
    }
    KernelHost(const KernelHost&) = delete;
    KernelHost& operator=(const KernelHost&) = delete;

    /// A UUID, which is that of the interpreter as long as there is one.
    const std::string& id() const { return id_; }

    /// A client of these paths has had the interpreter made, and ends it.
    void own() { isOwn_ = true; }
    bool isOwn() const { return isOwn_; }

    /// For a WebSocket of a front end, which may name its session, so that it is known when it comes back
    /// with the same token: others see the names of sessions.
    std::shared_ptr<sockets::Speaker> speaker(const std::string& session,
                                              const std::shared_ptr<const access::Grant>& grant,
                                              bool mayRestart);

    /// Returns at once.
    void interrupt() {
        room_->post([](KernelRoom& room) { room.interrupt(); });
    }
    /// `answered` is called once, with status 200 when the new process takes requests.
    void restart(KernelRoom::Answered answered) {
        room_->post([answered = std::move(answered)](KernelRoom& room) { room.restart(answered); });
    }

    std::size_t connections() const { return room_->connections(); }
    const char* executionState() const { return room_->executionState(); }
    std::chrono::system_clock::time_point lastActivity() const { return room_->lastActivity(); }

    void stop() {
        room_->post([](KernelRoom& room) { room.stop(); });
    }
    bool isUnused() const { return room_.use_count() == 1; }

private:
    const std::string id_ = connector::randomUuid();
    std::atomic<bool> isOwn_{false};
    const std::shared_ptr<KernelRoom> room_;
};

inline std::shared_ptr<sockets::Speaker> KernelHost::speaker(
    const std::string& session, const std::shared_ptr<const access::Grant>& grant, bool mayRestart) {
    constexpr std::size_t longest = 256;
    const bool isNamed = !session.empty() && session.size() <= longest;
    std::string own = isNamed ? std::to_string(reinterpret_cast<std::uintptr_t>(grant.get())) + ' ' + session
                              : connector::randomUuid();
    return std::make_shared<KernelSocket>(
        room_,
        KernelSocket::Peer{
            .session = std::move(own), .grant = grant, .comesBack = isNamed, .mayRestart = mayRestart},
        room_->frameBytes());
}

}  // namespace gateway::jupyter
