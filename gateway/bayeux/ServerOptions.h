#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace gateway::access {
struct Grant;
}

namespace gateway::bayeux {

/// What a Bayeux server asks of its clients, and how much it lets them use.
struct ServerOptions {
    enum class TokenCheck { Wrong, NotAllowed, Right };
    /// What to make of the token in a handshake's `ext`. Compares in constant time. Without it only
    /// authenticated peers get in.
    std::function<TokenCheck(const std::string& token)> checkToken = {};
    /// Whether the token still counts that an authenticated peer has shown; null: it does.
    std::function<bool(const std::shared_ptr<const access::Grant>& grant)> isCurrent = {};
    /// Told of handshakes whose token was not Right; may be null.
    std::function<void(TokenCheck, const std::string& address)> refused = {};

    std::chrono::milliseconds timeout = std::chrono::seconds(25);      ///< how long a connect is held
    std::chrono::milliseconds maxInterval = std::chrono::seconds(20);  ///< life without a connect
    std::size_t depth = 64;                                            ///< of JSON
    std::size_t messagesPerArray = 1000;
    /// In one body or frame, beside the data of its messages, which stays text.
    std::size_t values = 20'000;
    /// The same where the sender has shown neither the token nor the id of a session.
    std::size_t unauthenticatedValues = 1000;
    std::size_t frameBytes = std::size_t{16} << 20;  ///< of a WebSocket
    /// Of a body or a frame whose sender has shown neither the token nor the id of a session: the values in
    /// it take much more room than their text.
    std::size_t unauthenticatedBytes = std::size_t{64} << 10;
    std::size_t subscriptionsPerSession = 1000;
    std::size_t sessionsPerPeer = 1000;
    std::size_t handshakesPerSecond = 20;     ///< of one peer
    std::size_t connectsPerSecond = 50;       ///< of one session; more are answered later
    std::size_t callsPerSession = 64;         ///< under way
    std::size_t evaluationsPerSession = 256;  ///< that are streamed and have not ended
    /// What may wait for a session; beside it, there is one reply's worth on the way.
    std::size_t queueBytes = std::size_t{32} << 20;
    /// Deliveries in one reply or frame, and what may wait in a socket. One delivery may be larger.
    std::size_t replyBytes = std::size_t{1} << 20;
    /// Deliveries in one frame of a WebSocket: little, so that interrupts of the client come between.
    std::size_t frameDeliveries = std::size_t{256} << 10;
    /// For how long a client may take nothing while the code that it asked for waits for it; 0: never waits.
    std::chrono::milliseconds ownerWait = std::chrono::seconds(2);

    std::chrono::milliseconds sweepInterval = std::chrono::milliseconds(100);
    std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
};

}  // namespace gateway::bayeux
