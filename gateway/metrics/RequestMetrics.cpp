#include "metrics/RequestMetrics.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace gateway::metrics {

using connector::MutexLock;

void RequestMetrics::record(std::string_view endpoint, int status, std::chrono::nanoseconds duration) {
    const double seconds = std::chrono::duration<double>(duration).count();
    const auto bucket = std::ranges::lower_bound(bounds, seconds) - bounds.begin();
    const MutexLock lock(mutex_);
    ++counts_[{endpoint, status}];
    Durations& durations = durations_[endpoint];
    ++durations.buckets[static_cast<std::size_t>(bucket)];
    ++durations.count;
    durations.sum += seconds;
}

void RequestMetrics::count(std::string_view endpoint, int status) {
    const MutexLock lock(mutex_);
    ++counts_[{endpoint, status}];
}

void RequestMetrics::write(PrometheusText& page) const {
    const MutexLock lock(mutex_);
    page.family("numora_http_requests_total", "counter", "HTTP requests answered.");
    for (const auto& [key, count] : counts_) {
        const std::string status = std::to_string(key.second);
        page.sample("numora_http_requests_total", {{"endpoint", key.first}, {"status", status}}, count);
    }
    page.family("numora_http_request_duration_seconds", "histogram",
                "Time from a complete request to its answer.");
    for (const auto& [endpoint, durations] : durations_) {
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
