#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gateway::metrics {

/// A page in the text format of Prometheus, version 0.0.4.
///
/// Threads: one at a time.
class PrometheusText {
public:
    using Labels = std::vector<std::pair<std::string_view, std::string_view>>;

    /// Begins a family of samples. `type` is "counter", "gauge" or "histogram".
    void family(std::string_view name, std::string_view type, std::string_view help);
    /// A sample of the family `name`, or of `name` and a suffix of it.
    void sample(std::string_view name, const Labels& labels, std::uint64_t value);
    void sample(std::string_view name, const Labels& labels, double value);

    /// A family of one sample without labels.
    void single(std::string_view name, std::string_view type, std::string_view help, std::uint64_t value);

    std::string take() { return std::move(text_); }

private:
    void begin(std::string_view name, const Labels& labels);

    std::string text_;
};

}  // namespace gateway::metrics
