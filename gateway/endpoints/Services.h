#pragma once

#include <functional>
#include <string>
#include <vector>

#include "HttpRequest.h"
#include "access/AccessPolicy.h"
#include "access/Refusals.h"
#include "endpoints/StaticFiles.h"
#include "interpreters/Registry.h"
#include "interpreters/settings.h"
#include "jupyter/rest/NotebookSessions.h"
#include "metrics/RequestMetrics.h"
#include "metrics/metricsPage.h"

namespace gateway::endpoints {

/// What requests are answered from.  Threads: any.  Owns: borrows.
struct Services {
    const access::AccessPolicy& access;
    const StaticFiles& files;
    interpreters::Registry& interpreters;
    interpreters::CheckVenv checkVenv;
    metrics::RequestMetrics& metrics;
    std::string basePath;           ///< in front of all paths; empty: none
    std::vector<std::string> open;  ///< the paths of the server that need no token, without their slash
    std::function<metrics::Snapshot()> snapshot;
    access::Refusals& refusals;
    jupyter::NotebookSessions& sessions;
    bool canMakeInterpreters;
};

/// The sender of `request`, as the Bayeux server sees it.
inline bayeux::Peer peerOf(const HttpRequest& request) {
    return {.address = request.clientAddress,
            .isAuthenticated = request.grant != nullptr,
            .clientType = request.clientType,
            .origin = request.origin,
            .grant = request.grant};
}

}  // namespace gateway::endpoints
