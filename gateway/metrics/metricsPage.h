#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "dispatch/RequestDispatcher.h"
#include "messages/LocalMessageService.h"
#include "messages/RequestCounter.h"
#include "metrics/RequestMetrics.h"

namespace gateway::metrics {

/// Streaming evaluations that have ended.
struct Completions {
    std::uint64_t successes = 0;
    std::uint64_t failures = 0;
};

/// What the page shows beside the HTTP requests, at one moment.
struct Snapshot {
    messages::MessageMetrics messages;
    dispatch::DispatcherMetrics dispatcher;
    std::map<std::string, messages::RequestCounter::Counts> streaming;
    Completions completions;
    std::size_t bayeuxSessions = 0;
    std::size_t connections = 0;
    std::uint64_t refusedConnections = 0;  ///< with those that gave way before they had shown the token
    bool isReady = false;
};

/// The text of `/metrics`.
std::string metricsPage(const RequestMetrics& requests, const Snapshot& now);

}  // namespace gateway::metrics
