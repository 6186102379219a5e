#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace gateway {

/// What the access log tells: a request that has been answered, or a WebSocket that has begun or ended.
/// Texts are as the client sent them.
struct AccessEntry {
    /// The status of a request that is not answered, since its client has left.
    static constexpr int left = 499;

    std::string client;       ///< its address; behind trusted proxies what they say
    std::string method;       ///< "-" where it cannot be read; "CLOSE" for the end of a WebSocket
    std::string path;         ///< "-" where it cannot be read; without the query, in which a token may be
    int status = 0;           ///< of the answer; of the end of a WebSocket: the code that it was closed with
    std::uint64_t bytes = 0;  ///< of the body, or of the messages that the WebSocket's client has got
    std::chrono::milliseconds duration{};
    std::string userAgent{};
};

}  // namespace gateway
