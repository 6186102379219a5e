#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>

namespace gateway::http {

/// What connections run over. Each has a strand of its own as its executor.
using PlainStream = boost::asio::ip::tcp::socket;
using TlsStream = boost::beast::ssl_stream<PlainStream>;

}  // namespace gateway::http
