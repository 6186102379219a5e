#pragma once

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace standalone {

/// The most bytes that `writeNumber` writes.
constexpr std::size_t longestNumber = 32;

/// Writes a number as Python's json does: the shortest text that reads back as the same number, a float never
/// without a point or an exponent; NaN and infinities, which JSON lacks, as null. Returns the end.
inline char* writeNumber(double value, char* to) {
    if (!std::isfinite(value)) {
        std::memcpy(to, "null", 4);
        return to + 4;
    }
    const double size = std::abs(value);
    if (size != 0 && (size < 1e-4 || size >= 1e16)) {
        return std::to_chars(to, to + longestNumber, value, std::chars_format::scientific).ptr;
    }
    char* end = std::to_chars(to, to + longestNumber, value, std::chars_format::fixed).ptr;
    if (size == std::trunc(size)) {
        *end++ = '.';
        *end++ = '0';
    }
    return end;
}
inline char* writeNumber(std::int64_t value, char* to) {
    return std::to_chars(to, to + longestNumber, value).ptr;
}
inline char* writeNumber(std::uint64_t value, char* to) {
    return std::to_chars(to, to + longestNumber, value).ptr;
}

}  // namespace standalone
