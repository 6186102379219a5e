#pragma once

#include <memory>

#include <boost/asio/ip/tcp.hpp>

#include "http/ConnectionContext.h"
#include "http/OpenConnections.h"

namespace boost::asio::ssl {
class context;
}

namespace gateway::http {

/// Serves the requests of one connection until it ends; `tls` is null for a plain one. The executor of
/// `socket` is a strand of its own.
void serveHttp(boost::asio::ip::tcp::socket socket, boost::asio::ssl::context* tls,
               std::shared_ptr<OpenConnections::Place> place, const ConnectionContext& context);

}  // namespace gateway::http
