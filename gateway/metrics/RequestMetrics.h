#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <string_view>
#include <utility>

#include "connector/ThreadSafety.h"
#include "metrics/PrometheusText.h"

namespace gateway::metrics {

/// Counts HTTP requests by endpoint and status, and how long they took. An endpoint is what the table of
/// routes calls it.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf.  Owns: borrows the names of endpoints.
class RequestMetrics {
public:
    void record(std::string_view endpoint, int status, std::chrono::nanoseconds duration)
        CONNECTOR_EXCLUDES(mutex_);
    /// One that was refused before it took any time.
    void count(std::string_view endpoint, int status) CONNECTOR_EXCLUDES(mutex_);
    void write(PrometheusText& page) const CONNECTOR_EXCLUDES(mutex_);

private:
    /// Upper bounds of the buckets, in seconds; one more takes the rest.
    static constexpr std::array<double, 9> bounds = {0.001, 0.005, 0.025, 0.1, 0.5, 2.5, 10, 60, 300};

    struct Durations {
        std::array<std::uint64_t, bounds.size() + 1> buckets{};
        std::uint64_t count = 0;
        double sum = 0;  ///< in seconds
    };

    mutable connector::Mutex mutex_;
    std::map<std::pair<std::string_view, int>, std::uint64_t> counts_ CONNECTOR_GUARDED_BY(mutex_);
    std::map<std::string_view, Durations> durations_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace gateway::metrics
