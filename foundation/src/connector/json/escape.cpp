#include "connector/json/escape.h"

#include <algorithm>
#include <bit>

#include "connector/json/PlainBlock.h"
#include "fl/i18n/utf.h"

namespace connector::json {

using connector::common::DataBuffer;

namespace {

using fl::i18n::putUtf8;
using fl::i18n::replacementCharacter;

constexpr std::size_t longestEscape = 6;
// Room is made for this much text at a time, which bounds what is left over.
constexpr std::size_t chunkSize = 1024;

char* putEscape(unsigned char character, char* to) {
    static constexpr char digits[] = "0123456789abcdef";
    const char second = escapes.at(character);
    *to++ = '\\';
    *to++ = second;
    if (second == 'u') {
        *to++ = '0';
        *to++ = '0';
        *to++ = digits[character >> 4U];
        *to++ = digits[character & 0xFU];
    }
    return to;
}

/// Copies the sequence at `at`, which starts with a byte outside ASCII, or what stands for it.
char* copySequence(const char*& at, const char* end, char* to) {
    static constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000};
    const char* const start = at;
    const auto lead = static_cast<unsigned char>(*at++);
    const int length = std::countl_one(lead);
    if (length == 1 || length > 6) return putUtf8(replacementCharacter, to);
    char32_t codePoint = lead & (0x7FU >> static_cast<unsigned>(length));
    while (at != end && at - start < length && (*at & 0xC0) == 0x80) {
        codePoint = codePoint << 6U | (static_cast<unsigned char>(*at++) & 0x3FU);
    }
    if (at - start < length || codePoint < smallest[length] || codePoint > 0x10FFFF ||
        fl::i18n::isSurrogate(codePoint)) {
        return putUtf8(replacementCharacter, to);
    }
    return std::copy(start, at, to);
}

char* escapeNext(const char*& at, const char* end, char* to) {
    if ((*at & 0x80) == 0) return putEscape(static_cast<unsigned char>(*at++), to);
    return copySequence(at, end, to);
}

char* escapeNext(const char16_t*& at, const char16_t* end, char* to) {
    if (*at < 0x80) return putEscape(static_cast<unsigned char>(*at++), to);
    const char32_t codePoint = fl::i18n::readUtf16(at, end);
    return putUtf8(fl::i18n::isSurrogate(codePoint) ? replacementCharacter : codePoint, to);
}

/// Copies the plain characters at the start of [at, end) and returns how many there are. A block is stored
/// whole, so `to` needs a byte for each character up to `end`.
template <class Char>
std::size_t copyPlain(const Char* at, const Char* end, char* to) {
    const auto size = static_cast<std::size_t>(end - at);
    std::size_t done = 0;
    for (; size - done >= PlainBlock::size; done += PlainBlock::size) {
        const PlainBlock block(at + done);
        block.store(to + done);
        const std::size_t count = block.plainCount();
        if (count < PlainBlock::size) return done + count;
    }
    if (done != 0) {  // the rest is less than a block: one that begins among the characters already copied
        done = size - PlainBlock::size;
        const PlainBlock block(at + done);
        block.store(to + done);
        return done + block.plainCount();
    }
    for (; done < size && isPlain(at[done]); ++done) to[done] = static_cast<char>(at[done]);
    return done;
}

/// Escapes what starts before `chunkEnd`, moves `at` after it and returns where the next character goes.
template <class Char>
char* escapeChunk(const Char*& at, const Char* chunkEnd, const Char* end, char* to) {
    while (at < chunkEnd) {
        const std::size_t plain = copyPlain(at, chunkEnd, to);
        at += plain;
        to += plain;
        // Other characters tend to come in runs.
        while (at < chunkEnd && !isPlain(*at)) to = escapeNext(at, end, to);
    }
    return to;
}

/// Nothing counts as appended before all of it is there.
template <class Char>
void appendText(DataBuffer& out, std::basic_string_view<Char> text) {
    const Char* at = text.data();
    const Char* const end = at + text.size();
    std::size_t written = 0;
    while (at != end) {
        const std::size_t size = std::min(chunkSize, static_cast<std::size_t>(end - at));
        char* const to = out.room(written + size * longestEscape) + written;
        written += static_cast<std::size_t>(escapeChunk(at, at + size, end, to) - to);
    }
    out.advance(written);
}

}  // namespace

void appendEscaped(DataBuffer& out, std::string_view utf8) { appendText(out, utf8); }

void appendEscaped(DataBuffer& out, std::u16string_view text) { appendText(out, text); }

std::string quoted(std::string_view utf8) {
    DataBuffer out;
    out.push_back('"');
    appendEscaped(out, utf8);
    out.push_back('"');
    return std::string(out.view());
}

}  // namespace connector::json
