#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "messages/LocalMessageService.h"
#include "metrics/RequestMetrics.h"
#include "ports/InterpreterPort.h"

namespace gateway::metrics {

/// Streaming evaluations that have ended.
struct Completions {
    std::uint64_t successes = 0;
    std::uint64_t failures = 0;
};

/// What is known of one interpreter at one moment.
struct InterpreterSnapshot {
    std::string label{};  ///< its id; empty: its samples are not labelled
    messages::MessageMetrics messages;
    ports::PortMetrics port;
    Completions completions;
    std::size_t bayeuxSessions = 0;
    bool isReady = false;
};

/// What the page shows beside the HTTP requests, at one moment.
struct Snapshot {
    std::vector<InterpreterSnapshot> interpreters{};
    std::size_t connections = 0;
    std::vector<std::pair<std::string_view, std::uint64_t>> refusals{};  ///< by reason
    std::uint64_t refusedConnections = 0;  ///< with those that gave way before they had shown the token
};

/// The text of `/metrics`.
std::string metricsPage(const RequestMetrics& requests, const Snapshot& now);

}  // namespace gateway::metrics
