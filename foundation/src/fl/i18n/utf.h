#pragma once

/// Single characters in UTF-8 and UTF-16.  Threads: any.

#include <cstddef>

namespace fl::i18n {

inline constexpr char32_t replacementCharacter = 0xFFFD;

inline constexpr bool isSurrogate(char32_t codePoint) { return (codePoint & 0xFFFFF800U) == 0xD800; }

/// Reads the character at `at`, which is before `end`, and moves past it. An unpaired surrogate is returned
/// as it stands there.
inline char32_t readUtf16(const char16_t*& at, const char16_t* end) {
    const char32_t unit = *at++;
    if ((unit & 0xFC00U) != 0xD800 || at == end || (*at & 0xFC00U) != 0xDC00) return unit;
    return 0x10000 + ((unit & 0x3FFU) << 10U) + (*at++ & 0x3FFU);
}

/// Writes a character outside ASCII in two to four bytes and returns where the next one goes.
inline char* putUtf8(char32_t codePoint, char* to) {
    const auto put = [&to](char32_t byte) { *to++ = static_cast<char>(static_cast<unsigned char>(byte)); };
    if (codePoint < 0x800) {
        put(0xC0 | codePoint >> 6U);
    } else {
        if (codePoint < 0x10000) {
            put(0xE0 | codePoint >> 12U);
        } else {
            put(0xF0 | codePoint >> 18U);
            put(0x80 | (codePoint >> 12U & 0x3FU));
        }
        put(0x80 | (codePoint >> 6U & 0x3FU));
    }
    put(0x80 | (codePoint & 0x3FU));
    return to;
}

}  // namespace fl::i18n
