#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

namespace boost::asio::ssl {
class context;
}

namespace gateway::http {

/// What TLS connections are made with. Passphrases are not asked for.
/// Throws: std::invalid_argument, which names the option and the file that cannot be used.
std::shared_ptr<boost::asio::ssl::context> makeTlsContext(const std::filesystem::path& certificate,
                                                          const std::filesystem::path& key);

/// Accepts connections at one address. No program that this process starts inherits a socket.
///
/// Threads: made on any; `start` and `close` from any. Connections are handed over on threads of the context.
class Listener {
public:
    /// Takes over an accepted connection, whose executor is a new strand.
    using Accept = std::function<void(boost::asio::ip::tcp::socket)>;

    /// Listens; connections wait until `start`.
    /// Throws: std::runtime_error, when the address is not available.
    Listener(boost::asio::io_context& context, const boost::asio::ip::address& address, std::uint16_t port);
    ~Listener();

    std::uint16_t port() const { return port_; }
    void start(Accept accept);
    void close();

private:
    void awaitConnections();
    void acceptThem();
    void take(int descriptor);
    void retryLater(int problem);

    boost::asio::io_context& context_;
    const boost::asio::ip::tcp protocol_;
    boost::asio::ip::tcp::acceptor acceptor_;  ///< used on its strand
    boost::asio::steady_timer retry_;
    std::uint16_t port_;
    Accept accept_;
};

}  // namespace gateway::http
