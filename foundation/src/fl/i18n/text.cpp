#include "fl/i18n/text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "fl/i18n/utf.h"

namespace fl::i18n {

namespace {

constexpr auto replacement = static_cast<char16_t>(replacementCharacter);
constexpr std::size_t asciiBlock = 32;
constexpr std::ptrdiff_t pieceSize = 512;

enum class Form { WellFormed, Malformed, Incomplete };

/// What stands at one place of a UTF-8 text. `length` covers a malformed sequence's maximal subpart.
struct Sequence {
    Form form;
    std::size_t length;
    char32_t codePoint;
    const char* reason;
};

/// What a lead byte promises. The range of the second byte is what keeps overlong forms, surrogates and
/// numbers above U+10FFFF out; `reason` says which of them a continuation byte outside it would make.
struct Lead {
    std::size_t length;
    unsigned char low;
    unsigned char high;
    const char* reason;
};

constexpr Lead leadOf(unsigned char byte) {
    if (byte < 0xC0) return {0, 0, 0, "unexpected continuation byte"};
    if (byte < 0xC2) return {0, 0, 0, "overlong form"};
    if (byte < 0xE0) return {2, 0x80, 0xBF, ""};
    if (byte == 0xE0) return {3, 0xA0, 0xBF, "overlong form"};
    if (byte == 0xED) return {3, 0x80, 0x9F, "surrogate"};
    if (byte < 0xF0) return {3, 0x80, 0xBF, ""};
    if (byte == 0xF0) return {4, 0x90, 0xBF, "overlong form"};
    if (byte < 0xF4) return {4, 0x80, 0xBF, ""};
    if (byte == 0xF4) return {4, 0x80, 0x8F, "number above U+10FFFF"};
    return {0, 0, 0, "byte that UTF-8 does not use"};
}

/// Reads the sequence at the start of `bytes`, which starts with a byte that is not ASCII.
Sequence readSequence(std::string_view bytes) {
    const auto byteAt = [bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const Lead lead = leadOf(byteAt(0));
    if (lead.length == 0) return {Form::Malformed, 1, 0, lead.reason};
    char32_t codePoint = byteAt(0) & (0x7FU >> lead.length);
    for (std::size_t i = 1; i < lead.length; ++i) {
        if (i == bytes.size()) return {Form::Incomplete, i, 0, "unfinished sequence"};
        const unsigned char byte = byteAt(i);
        if ((byte & 0xC0U) != 0x80) return {Form::Malformed, i, 0, "missing continuation byte"};
        if (i == 1 && (byte < lead.low || byte > lead.high)) return {Form::Malformed, i, 0, lead.reason};
        codePoint = codePoint << 6U | (byte & 0x3FU);
    }
    return {Form::WellFormed, lead.length, codePoint, ""};
}

/// Copies the ASCII characters at the start of [from, end) and returns how many there are. The inner loops
/// have a fixed count, too high for them to be unrolled, so that compilers turn them into vector
/// instructions; the block of its own cannot overlap what is written.
template <class To, class From>
std::size_t copyAscii(const From* from, const From* end, To* to) {
    const From* at = from;
    for (; end - at >= static_cast<std::ptrdiff_t>(asciiBlock); at += asciiBlock) {
        std::array<From, asciiBlock> block;
        std::memcpy(block.data(), at, sizeof block);
        From bits = 0;
        for (const From unit : block) bits = static_cast<From>(bits | unit);
        if ((bits & ~0x7F) != 0) break;
        for (std::size_t i = 0; i < asciiBlock; ++i) to[i] = static_cast<To>(block[i]);
        to += asciiBlock;
    }
    for (; at != end && (*at & ~0x7F) == 0; ++at) *to++ = static_cast<To>(*at);
    return static_cast<std::size_t>(at - from);
}

char16_t* putUtf16(char32_t codePoint, char16_t* to) {
    if (codePoint >= 0x10000) {
        *to++ = static_cast<char16_t>(0xD7C0 + (codePoint >> 10U));
        codePoint = 0xDC00 | (codePoint & 0x3FFU);
    }
    *to++ = static_cast<char16_t>(codePoint);
    return to;
}

/// Decodes up to the first sequence that is not well-formed and says which it is; `bytes` is what is left
/// then. Room: `to` takes at most one code unit for each byte.
Sequence decodeWellFormed(std::string_view& bytes, char16_t*& to) {
    while (!bytes.empty()) {
        const std::size_t ascii = copyAscii(bytes.data(), bytes.data() + bytes.size(), to);
        to += ascii;
        bytes.remove_prefix(ascii);
        // Text outside ASCII tends to come in runs.
        while (!bytes.empty() && (bytes.front() & 0x80) != 0) {
            const Sequence sequence = readSequence(bytes);
            if (sequence.form != Form::WellFormed) return sequence;
            to = putUtf16(sequence.codePoint, to);
            bytes.remove_prefix(sequence.length);
        }
    }
    return {Form::WellFormed, 0, 0, ""};
}

void requireUtf8(std::string_view encoding) {
    if (encoding != "UTF-8") {
        throw std::invalid_argument("Unknown text encoding: " + std::string(encoding));
    }
}

ConversionError unpairedSurrogate(std::ptrdiff_t offset) {
    return {"Malformed UTF-16 at code unit " + std::to_string(offset) + ": unpaired surrogate",
            static_cast<std::size_t>(offset)};
}

}  // namespace

codecvt_ustring_to_string::codecvt_ustring_to_string(std::string_view encoding, bool replaceMalformed)
    : replaceMalformed_(replaceMalformed) {
    requireUtf8(encoding);
}

std::string codecvt_ustring_to_string::operator()(std::u16string_view text) const {
    std::string out;
    out.reserve(text.size());
    // Converting piece by piece on the stack costs less than clearing a string of the greatest length
    // possible. Three bytes for each unit, and one more when a pair reaches over the end of its piece.
    std::array<char, 3 * pieceSize + 1> piece;
    const char16_t* const end = text.data() + text.size();
    for (const char16_t* at = text.data(); at != end;) {
        const char16_t* const pieceEnd = at + std::min<std::ptrdiff_t>(pieceSize, end - at);
        char* to = piece.data();
        while (at < pieceEnd) {
            const std::size_t ascii = copyAscii(at, pieceEnd, to);
            at += ascii;
            to += ascii;
            while (at < pieceEnd && *at >= 0x80) {
                char32_t codePoint = readUtf16(at, end);
                if (isSurrogate(codePoint)) {
                    if (!replaceMalformed_) throw unpairedSurrogate(at - text.data() - 1);
                    codePoint = replacementCharacter;
                }
                to = putUtf8(codePoint, to);
            }
        }
        out.append(piece.data(), to);
    }
    return out;
}

codecvt_string_to_ustring::codecvt_string_to_ustring(std::string_view encoding, bool replaceMalformed)
    : replaceMalformed_(replaceMalformed) {
    requireUtf8(encoding);
}

std::u16string codecvt_string_to_ustring::operator()(std::string_view bytes) const {
    std::u16string out(bytes.size(), u'\0');
    char16_t* to = out.data();
    std::string_view rest = bytes;
    while (!rest.empty()) {
        const Sequence stop = decodeWellFormed(rest, to);
        if (stop.form == Form::WellFormed) break;
        if (!replaceMalformed_) {
            const std::size_t offset = bytes.size() - rest.size();
            throw ConversionError("Malformed UTF-8 at byte " + std::to_string(offset) + ": " + stop.reason,
                                  offset);
        }
        *to++ = replacement;
        rest.remove_prefix(stop.length);
    }
    out.resize(static_cast<std::size_t>(to - out.data()));
    return out;
}

std::string to_string(std::u16string_view text) { return codecvt_ustring_to_string("UTF-8")(text); }

std::string to_string(std::u16string_view text, const codecvt_ustring_to_string& converter) {
    return converter(text);
}

std::u16string to_ustring(std::string_view utf8) { return codecvt_string_to_ustring("UTF-8")(utf8); }

std::u16string to_ustring(std::string_view utf8, const codecvt_string_to_ustring& converter) {
    return converter(utf8);
}

void Utf8Decoder::decode(std::string_view bytes, std::u16string& out) {
    std::string joined;
    if (!pending_.empty()) {
        joined.append(pending_).append(bytes);
        bytes = joined;
    }
    const std::size_t before = out.size();
    out.resize(before + bytes.size());
    pending_.clear();
    char16_t* to = out.data() + before;
    while (!bytes.empty()) {
        const Sequence stop = decodeWellFormed(bytes, to);
        if (stop.form == Form::Incomplete) pending_ = bytes;
        if (stop.form != Form::Malformed) break;
        *to++ = replacement;
        bytes.remove_prefix(stop.length);
    }
    out.resize(static_cast<std::size_t>(to - out.data()));
}

void Utf8Decoder::finish(std::u16string& out) {
    if (pending_.empty()) return;
    out.push_back(replacement);
    pending_.clear();
}

}  // namespace fl::i18n
