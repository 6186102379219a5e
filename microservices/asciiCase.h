#pragma once

#include <algorithm>
#include <string_view>

namespace cppmicroservices::detail {

// Keys and filters are compared without regard to the locale.

constexpr char lowered(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}
constexpr bool isBlank(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

inline bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, {}, lowered, lowered);
}

}  // namespace cppmicroservices::detail
