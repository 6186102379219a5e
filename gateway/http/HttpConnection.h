#pragma once

#include <memory>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/thread_pool.hpp>

#include "gateway/Gateway.h"
#include "http/ConnectionTable.h"
#include "http/Endpoints.h"

namespace boost::asio::ssl {
class context;
}

namespace gateway::http {

/// What all connections share.  Owns: borrows; everything in it outlives the connections.
struct ConnectionContext {
    Endpoints& endpoints;
    const ConnectionLimits& limits;
    boost::asio::thread_pool& reading;  ///< where large bodies and frames are read, one after the other
};

/// Serves the requests of one connection until it ends; `tls` is null for a plain one. The executor of
/// `socket` is a strand of its own.
void serveHttp(boost::asio::ip::tcp::socket socket, boost::asio::ssl::context* tls,
               std::shared_ptr<ConnectionTable::Place> place, const ConnectionContext& context);

}  // namespace gateway::http
