#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "connector/ServiceFramework.h"
#include "connector/json/JsonSerializer.h"
#include "gateway/GatewayOptions.h"
#include "messages/LocalMessageService.h"

namespace gateway {

/// The HTTP server of the connector: requests and their answers, Bayeux over WebSocket and long-polling, the
/// console's files, health and metrics. docs/gateway.md describes what it serves.
///
///     made -- start --> serving -- stop --> stopped
///       '-------------- stop -----------------^
///
/// Threads: made, started, stopped and destroyed on one thread. Handlers of the message service run on its
/// threads. Owns: borrows the message service.
class Gateway {
public:
    /// `isReady` says whether requests would be served now; it is called on threads of the gateway.
    /// Throws: std::invalid_argument, for options that are not usable.
    Gateway(messages::LocalMessageService& messages, std::shared_ptr<connector::ServiceFramework> framework,
            std::shared_ptr<connector::json::JsonSerializer> serializer, std::function<bool()> isReady,
            GatewayOptions options);
    /// Stops.
    ~Gateway();
    Gateway(const Gateway&) = delete;
    Gateway& operator=(const Gateway&) = delete;

    /// Listens; connections are accepted when it returns.
    /// Blocks: until the default interpreter takes requests, or a stop is wanted, which is then to follow.
    /// Throws: std::runtime_error, when the address is not available or the interpreter does not start;
    /// std::invalid_argument, for a file that cannot be used and an address beyond the loopback without a
    /// token.
    void start();

    /// Has other tokens, and a certificate and a key that are read anew, count for what begins from now on.
    /// Requests, connections, streams and sessions that have begun go on; but a session begins only with a
    /// token that counts. An empty token stands for the one that was made.
    /// To be called between `start` and `stop`, on their thread.
    /// Throws: std::invalid_argument, for what cannot be used; then nothing has changed.
    void reload(const ReloadableOptions& options);

    /// The port that is listened on.
    std::uint16_t port() const;
    const std::string& token() const;
    /// Where a browser on this machine finds the console: "http://127.0.0.1:8350/", with the base path,
    /// without the token.
    std::string url() const;

    /// Takes no more requests, interrupts those that run, answers them, ends the sessions and closes every
    /// connection.  Blocks: while interrupted requests end, and a second for slow clients.
    void stop();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace gateway
