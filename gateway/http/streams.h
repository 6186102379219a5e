#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>

namespace gateway::http {

/// What connections run over. Each has a strand of its own as its executor.
using PlainStream = boost::asio::ip::tcp::socket;
using TlsStream = boost::beast::ssl_stream<PlainStream>;

/// Ends a connection for its client, too, when a forked process holds the socket as well.
inline void closeNow(PlainStream& socket) {
    boost::system::error_code ignored;
    socket.shutdown(PlainStream::shutdown_both, ignored);
    socket.close(ignored);
}

}  // namespace gateway::http
