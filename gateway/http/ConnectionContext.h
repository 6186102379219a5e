#pragma once

#include <functional>

#include <boost/asio/thread_pool.hpp>

#include "endpoints/Endpoints.h"
#include "gateway/GatewayOptions.h"
#include "http/TrustedProxies.h"

namespace gateway::http {

/// What all connections share.  Owns: borrows; everything in it outlives the connections.
struct ConnectionContext {
    endpoints::Endpoints& endpoints;
    const ConnectionLimits& limits;
    const TrustedProxies& proxies;
    const std::function<void(const AccessEntry&)>& onAccess;  ///< may be null
    boost::asio::thread_pool& reading;  ///< where large bodies and frames are read, one after the other
};

}  // namespace gateway::http
