#pragma once

/// For those who speak to a server; it brings Boost.Beast.

#include <atomic>
#include <optional>
#include <utility>
#include <variant>

#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>

#include "ServerAddress.h"

namespace app {

/// A connection to a server, with TLS where its address says so, and what runs the operations on it, one at a
/// time.
///
/// Threads: one at a time, but for `abort`.
class ServerConnection {
public:
    using Plain = boost::beast::tcp_stream;
    using Secure = boost::beast::ssl_stream<boost::beast::tcp_stream>;
    using Error = boost::system::error_code;

    explicit ServerConnection(ServerAddress address) : address(std::move(address)) {}

    /// Makes the stream; one that exists is closed.
    /// Blocks: ten seconds at most, beside the look-up of the name.  Throws: ConnectionLost.
    void connect();

    /// Starts an operation, which gets a handler for its end, and waits for that. What has been posted to the
    /// context runs meanwhile.
    template <class Start>
    Error outcomeOf(Start start) {
        Error result = boost::asio::error::operation_aborted;
        if (isAborted()) return result;
        bool isOver = false;
        start([&](const Error& error, const auto&...) {
            result = error;
            isOver = true;
        });
        // Streams keep timers of their own, which are not waited for.
        context.restart();
        while (!isOver && context.run_one() > 0) continue;
        return result;
    }

    /// Throws: ConnectionLost, for an error: `what`, the address, and why.
    void check(const char* what, const Error& error) const;

    /// Ends the operation under way, if it is one of the stream, and all later ones.
    /// Threads: any.  Blocks: never.
    void abort();
    bool isAborted() const { return isAborted_; }

    boost::beast::tcp_stream& lowest();

    const ServerAddress address;
    boost::asio::io_context context;
    std::optional<std::variant<Plain, Secure>> stream;

private:
    void handshake(Secure& secure);

    boost::asio::ssl::context tls_{boost::asio::ssl::context::tls_client};
    std::atomic<bool> isAborted_{false};
};

}  // namespace app
