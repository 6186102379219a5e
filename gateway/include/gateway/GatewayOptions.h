#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "gateway/AccessEntry.h"
#include "messages/RequestCounter.h"

namespace boost::asio {
class io_context;
}
namespace messages {
class LocalMessageService;
}
namespace gateway::ports {
class InterpreterPort;
struct InterpreterSpec;
}  // namespace gateway::ports

namespace gateway {

/// What connections may use up. A connection that takes longer is closed.
struct ConnectionLimits {
    /// Beyond them the oldest one gives way that has not shown the token, or else the new one is closed. A
    /// sixteenth is kept for those that have not shown it yet, and for health, metrics and interrupts.
    std::size_t connections = 2000;
    std::size_t headBytes = std::size_t{16} << 10;
    std::size_t bodyBytes = std::size_t{16} << 20;  ///< of a request, and of a frame of a WebSocket
    /// Of a body for the Bayeux server, and of a frame, whose sender has shown neither the token nor a
    /// session.
    std::size_t unauthenticatedBytes = std::size_t{64} << 10;
    /// Larger bodies that are read at a time although no session has been seen in them yet: clients may name
    /// theirs at the end.
    std::ptrdiff_t unauthenticatedBodies = 8;

    std::chrono::milliseconds headTime =
        std::chrono::seconds(10);  ///< also of the handshakes, and until a WebSocket has shown the token
    std::chrono::milliseconds bodyTime =
        std::chrono::seconds(30);  ///< and a second more for each 64 KiB that have come
    std::chrono::milliseconds idleTime = std::chrono::seconds(60);   ///< between requests
    std::chrono::milliseconds writeTime = std::chrono::seconds(30);  ///< without progress
    std::chrono::milliseconds pingTime =
        std::chrono::seconds(15);  ///< of a silent WebSocket; twice that closes it
};

/// A token that may not do all.
struct TokenOptions {
    std::string sha256;                     ///< of its text, in hexadecimal digits
    std::vector<std::string> interpreters;  ///< whose; an id that ends with '*' stands for all that begin so
    std::vector<std::string> rights;        ///< of "use", "restart" and "create"
};

/// What may change while a gateway serves, as GatewayOptions has it.
struct ReloadableOptions {
    std::string token{};
    std::vector<TokenOptions> tokens{};
    std::filesystem::path tlsCertificate{};
    std::filesystem::path tlsKey{};
};

struct GatewayOptions {
    /// Makes the way to an interpreter, on any thread.
    using MakePort = std::function<std::unique_ptr<ports::InterpreterPort>(
        boost::asio::io_context&, messages::LocalMessageService&, const ports::InterpreterSpec&)>;

    std::string host = "127.0.0.1";  ///< the address to listen on
    std::uint16_t port = 8350;       ///< 0 stands for any that is free
    /// What clients have to show: 16 to 512 letters, digits and `-._~`. When it is empty a token is made, but
    /// only for a loopback address.
    std::string token{};
    std::vector<std::string> hosts{};    ///< further names of this server: with a port, or for every port
    std::vector<std::string> origins{};  ///< further origins whose pages may use it: "https://lab.example"
    std::string basePath{};              ///< in front of all paths, such as "/numora"; empty: none
    std::vector<std::string> open{};     ///< what needs no token: "readyz", "metrics"
    /// Addresses and networks of proxies that are believed when they say for whom a request is.
    std::vector<std::string> trustedProxies{};
    std::filesystem::path console{};  ///< the folder with the files of the browser console; may be empty
    std::filesystem::path tlsCertificate{};  ///< in PEM, with the chain; empty for plain HTTP
    std::filesystem::path tlsKey{};

    std::vector<TokenOptions> tokens{};
    /// What is known of interpreters beforehand, by their ids: the JSON object that POST /interpreters takes,
    /// whose "id", if any, must be one. They start on demand.
    std::map<std::string, std::string> interpreters{};
    std::size_t mostInterpreters = 32;
    /// What the configuration of every interpreter begins with: connector/configuration/settings.h.
    std::map<std::string, std::string> configuration{};
    /// Null: there is the default one alone, in this process.
    MakePort makePort{};
    /// Throws std::runtime_error for the folder of a virtual environment that interpreters cannot use; may be
    /// null.
    std::function<void(const std::filesystem::path&)> checkVenv{};

    std::size_t handlerThreads = 16;  ///< for the requests that wait for the same thing
    std::size_t handlerQueue = 1000;  ///< of those that wait for the base prompt
    /// Whether code waits for an evaluation to be its input, called on threads of the gateway; may be null.
    std::function<bool()> isReadingInput{};
    /// The state of the interpreter that calls wait for which name none; called as the one before; may be
    /// null.
    std::function<std::string()> dequeMode{};
    /// More of them take turns, which costs a small request more than it gains.
    std::size_t ioThreads = 1;
    ConnectionLimits limits{};
    /// For how long a client may take nothing while the code that it streams waits for it; 0: it never waits.
    std::chrono::milliseconds ownerWait = std::chrono::seconds(2);
    /// For how long the streams, and each tag of events, count as listened to after their last client has
    /// left.
    std::chrono::milliseconds standInTime = std::chrono::minutes(5);
    /// Asked again and again while the default interpreter starts: true ends the wait for it. May be null.
    std::function<bool()> isStopWanted{};
    /// Takes what the access log tells, on threads of the gateway. It must not wait; may be null.
    std::function<void(const AccessEntry&)> onAccess{};
    /// Counts for the metrics; may be null.
    std::shared_ptr<const messages::RequestCounter> streaming{};
};

}  // namespace gateway
