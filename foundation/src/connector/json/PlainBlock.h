#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace connector::json {

/// What follows the backslash, for each ASCII character: 'u' stands for the form with four digits, 0 for a
/// plain character, which needs no backslash.
inline constexpr std::array<char, 128> escapes = [] {
    std::array<char, 128> table{};
    for (std::size_t control = 0; control < 0x20; ++control) table.at(control) = 'u';
    for (const char markup : {'&', '\'', '<', '=', '>'}) table.at(static_cast<std::size_t>(markup)) = 'u';
    table['"'] = '"';
    table['\n'] = 'n';
    table['\t'] = 't';
    table['\r'] = 'r';
    table['\b'] = 'b';
    table['\f'] = 'f';
    table['\\'] = '\\';
    return table;
}();

inline bool isPlain(char byte) {
    const auto index = static_cast<unsigned char>(byte);
    return index < escapes.size() && escapes[index] == 0;
}
inline bool isPlain(char16_t unit) { return unit < escapes.size() && escapes[unit] == 0; }

#ifdef __SSE2__

/// Some characters next to each other, one byte each; those outside ASCII are told apart from plain ones, but
/// not kept.
class PlainBlock {
public:
    static constexpr std::size_t size = 16;

    explicit PlainBlock(const char* text) : bytes_(load(text)) {}
    // Saturation takes units from 0x80 on to bytes from 0x80 on, and those from 0x8000 on, which count as
    // negative, to 0: neither is plain.
    explicit PlainBlock(const char16_t* text) : bytes_(_mm_packus_epi16(load(text), load(text + size / 2))) {}

    void store(char* to) const { _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes_); }

    /// How many plain characters there are before the first that is not.
    std::size_t plainCount() const {
        const auto all = [](char byte) { return _mm_set1_epi8(byte); };
        // As signed bytes, those from 0x80 on are below the space, too.
        __m128i found = _mm_cmplt_epi8(bytes_, all(' '));
        const auto find = [&found](__m128i matches) { found = _mm_or_si128(found, matches); };
        find(_mm_cmpeq_epi8(bytes_, all('"')));
        find(_mm_cmpeq_epi8(_mm_or_si128(bytes_, all(1)), all('\'')));  // & differs from ' in the last bit
        // The range from < to >, moved up to the end of the signed bytes.
        find(_mm_cmpgt_epi8(_mm_add_epi8(bytes_, all(0x7F - '>')), all(0x7F - '>' + '<' - 1)));
        find(_mm_cmpeq_epi8(bytes_, all('\\')));
        const auto bits = static_cast<unsigned>(_mm_movemask_epi8(found));
        return bits == 0 ? size : static_cast<std::size_t>(std::countr_zero(bits));
    }

private:
    template <class Char>
    static __m128i load(const Char* text) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
    }

    __m128i bytes_;
};

#else

class PlainBlock {
public:
    static constexpr std::size_t size = 8;

    explicit PlainBlock(const char* text) { std::memcpy(bytes_.data(), text, size); }
    explicit PlainBlock(const char16_t* text) {
        for (std::size_t i = 0; i < size; ++i) bytes_[i] = static_cast<char>(text[i] < 0x80 ? text[i] : 0x80);
    }

    void store(char* to) const { std::memcpy(to, bytes_.data(), size); }

    std::size_t plainCount() const {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes_.data(), size);
        // Not 0 if and only if a byte is below: a borrow that reaches a byte comes from one.
        const auto below = [](std::uint64_t bytes, unsigned limit) {
            return (bytes - each * limit) & ~bytes & each * 0x80;
        };
        std::uint64_t found = (word & each * 0x80) | below(word, ' ');
        for (const char special : {'"', '&', '\'', '<', '=', '>', '\\'}) {
            found |= below(word ^ each * static_cast<unsigned char>(special), 1);
        }
        if (found == 0) return size;
        std::size_t count = 0;
        while (isPlain(bytes_[count])) ++count;
        return count;
    }

private:
    static constexpr std::uint64_t each = 0x0101010101010101;  // times a byte: that byte in each place

    std::array<char, size> bytes_;
};

#endif

}  // namespace connector::json
