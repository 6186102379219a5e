#include "HttpRequest.h"

#include <algorithm>
#include <charconv>

namespace gateway {

namespace {

char lower(char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter; }

// A percent sign without two digits after it stands for itself.
std::string percentDecoded(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned value = 0;
        if (text[i] == '%' && text.size() - i > 2 &&
            std::from_chars(text.data() + i + 1, text.data() + i + 3, value, 16).ptr == text.data() + i + 3) {
            decoded.push_back(static_cast<char>(value));
            i += 2;
        } else {
            decoded.push_back(text[i]);
        }
    }
    return decoded;
}

}  // namespace

std::optional<std::uint64_t> HttpRequest::wantedLife() const {
    std::uint64_t number = 0;
    const char* const end = life.data() + life.size();
    const auto [stop, error] = std::from_chars(life.data(), end, number);
    if (life.empty() || error != std::errc() || stop != end) return std::nullopt;
    return number;
}

std::string queryValue(std::string_view query, std::string_view name) {
    while (!query.empty()) {
        const std::string_view pair = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(query.size(), pair.size() + 1));
        if (pair.size() > name.size() && pair.starts_with(name) && pair[name.size()] == '=') {
            return percentDecoded(pair.substr(name.size() + 1));
        }
    }
    return {};
}

bool equalsIgnoringCase(std::string_view one, std::string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

}  // namespace gateway
