#include "metrics/RequestMetrics.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace gateway::metrics {

using connector::MutexLock;

std::string_view nameOf(Endpoint endpoint) {
    constexpr std::array<std::string_view, static_cast<std::size_t>(Endpoint::Count)> names = {
        "eval",    "feval",  "interrupt", "other_message", "messages", "bayeux",
        "healthz", "readyz", "metrics",   "console",       "malformed"};
    return names[static_cast<std::size_t>(endpoint)];
}

void RequestMetrics::record(Endpoint endpoint, int status, std::chrono::nanoseconds duration) {
    const double seconds = std::chrono::duration<double>(duration).count();
    const auto bucket = std::ranges::lower_bound(bounds, seconds) - bounds.begin();
    const MutexLock lock(mutex_);
    ++counts_[{endpoint, status}];
    Durations& durations = durations_[static_cast<std::size_t>(endpoint)];
    ++durations.buckets[static_cast<std::size_t>(bucket)];
    ++durations.count;
    durations.sum += seconds;
}

void RequestMetrics::count(Endpoint endpoint, int status) {
    const MutexLock lock(mutex_);
    ++counts_[{endpoint, status}];
}

void RequestMetrics::write(PrometheusText& page) const {
    const MutexLock lock(mutex_);
    page.family("numora_http_requests_total", "counter", "HTTP requests answered.");
    for (const auto& [key, count] : counts_) {
        const std::string status = std::to_string(key.second);
        page.sample("numora_http_requests_total", {{"endpoint", nameOf(key.first)}, {"status", status}},
                    count);
    }
    page.family("numora_http_request_duration_seconds", "histogram",
                "Time from a complete request to its answer.");
    for (std::size_t i = 0; i < durations_.size(); ++i) {
        const Durations& durations = durations_[i];
        if (durations.count == 0) continue;
        const std::string_view endpoint = nameOf(static_cast<Endpoint>(i));
        std::uint64_t sum = 0;
        for (std::size_t bucket = 0; bucket < durations.buckets.size(); ++bucket) {
            std::array<char, 32> text{};
            const auto* const end =
                bucket == bounds.size()
                    ? std::ranges::copy(std::string_view("+Inf"), text.data()).out
                    : std::to_chars(text.data(), text.data() + text.size(), bounds[bucket]).ptr;
            sum += durations.buckets[bucket];
            page.sample("numora_http_request_duration_seconds_bucket",
                        {{"endpoint", endpoint}, {"le", std::string_view(text.data(), end)}}, sum);
        }
        page.sample("numora_http_request_duration_seconds_sum", {{"endpoint", endpoint}}, durations.sum);
        page.sample("numora_http_request_duration_seconds_count", {{"endpoint", endpoint}}, durations.count);
    }
}

}  // namespace gateway::metrics
