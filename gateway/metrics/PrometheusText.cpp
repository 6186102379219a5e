#include "metrics/PrometheusText.h"

#include <array>
#include <charconv>

namespace gateway::metrics {

namespace {

void appendEscaped(std::string& text, std::string_view value) {
    for (const char c : value) {
        if (c == '\\' || c == '"') text.push_back('\\');
        if (c == '\n') {
            text.append("\\n");
        } else {
            text.push_back(c);
        }
    }
}

}  // namespace

void PrometheusText::family(std::string_view name, std::string_view type, std::string_view help) {
    text_.append("# HELP ").append(name).append(" ").append(help).append("\n");
    text_.append("# TYPE ").append(name).append(" ").append(type).append("\n");
}

void PrometheusText::sample(std::string_view name, const Labels& labels, std::uint64_t value) {
    begin(name, labels);
    text_.append(std::to_string(value)).append("\n");
}

void PrometheusText::sample(std::string_view name, const Labels& labels, double value) {
    std::array<char, 32> digits{};
    const auto* const end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    begin(name, labels);
    text_.append(digits.data(), static_cast<std::size_t>(end - digits.data())).append("\n");
}

void PrometheusText::single(std::string_view name, std::string_view type, std::string_view help,
                            std::uint64_t value) {
    family(name, type, help);
    sample(name, {}, value);
}

void PrometheusText::begin(std::string_view name, const Labels& labels) {
    text_.append(name);
    for (std::size_t i = 0; i < labels.size(); ++i) {
        text_.append(i == 0 ? "{" : ",").append(labels[i].first).append("=\"");
        appendEscaped(text_, labels[i].second);
        text_.push_back('"');
    }
    text_.append(labels.empty() ? " " : "} ");
}

}  // namespace gateway::metrics
