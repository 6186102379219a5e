#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "ServerAddress.h"

namespace app {

/// The server cannot be reached, or the connection to it has broken; what() says which, with the address.
class ConnectionLost : public std::runtime_error {
public:
    ConnectionLost(const std::string& what, bool isRefused)
        : std::runtime_error(what), isRefused_(isRefused) {}

    /// Nobody listens there.
    bool isRefused() const { return isRefused_; }

private:
    bool isRefused_;
};

/// One connection to a server, made when it is needed and kept for the next request.
///
/// A server that is gone without a word is noticed by keep-alive probes, after half a minute.
///
/// Threads: one at a time, but for `abort`.
class HttpClient {
public:
    struct Answer {
        int status;
        std::string body;
        bool isDropped = false;  ///< what was asked for has not been done, for somebody's interrupt
        std::string life{};      ///< the number of the interpreter's; empty when there is none
    };

    explicit HttpClient(ServerAddress address);
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    /// Sends `json` to a path of the interpreter. A request is never sent twice. With a `life` it is run in
    /// that life of the interpreter, or refused with 409. Blocks: until the answer is there, for `limit` at
    /// most if there is one; ten seconds for a connection. Throws: ConnectionLost.
    Answer post(const std::string& path, const std::string& json,
                std::optional<std::chrono::seconds> limit = std::nullopt, const std::string& life = {});
    Answer get(const std::string& path, std::chrono::seconds limit);
    Answer remove(const std::string& path, std::chrono::seconds limit);

    /// Ends the request under way and all later ones with ConnectionLost.  Threads: any.  Blocks: never.
    void abort();

private:
    class Impl;
    const std::unique_ptr<Impl> impl_;
};

}  // namespace app
