#pragma once

#include <functional>

#include "HttpRequest.h"
#include "access/AccessPolicy.h"
#include "bayeux/BayeuxServer.h"
#include "dispatch/RequestDispatcher.h"
#include "endpoints/StaticFiles.h"
#include "metrics/RequestMetrics.h"
#include "metrics/metricsPage.h"

namespace gateway::endpoints {

/// What requests are answered from.  Threads: any.  Owns: borrows.
struct Services {
    const access::AccessPolicy& access;
    const StaticFiles& files;
    dispatch::RequestDispatcher& dispatcher;
    bayeux::BayeuxServer& bayeux;
    metrics::RequestMetrics& metrics;
    std::function<bool()> isReady;
    std::function<metrics::Snapshot()> snapshot;
};

/// The sender of `request`, as the Bayeux server sees it.
inline bayeux::Peer peerOf(const Services& services, const HttpRequest& request) {
    return {.address = request.peerAddress,
            .isAuthenticated = services.access.isAuthenticated(request),
            .clientType = request.clientType,
            .origin = request.origin};
}

}  // namespace gateway::endpoints
