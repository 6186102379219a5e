#include "fl/i18n/text.h"

#include <cstdint>
#include <cstring>

namespace fl::i18n {

namespace {

constexpr char16_t replacement = u'\uFFFD';
constexpr std::size_t asciiBlock = 16;

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

bool isAsciiBlock(const char* bytes) {
    std::uint64_t words[2];
    std::memcpy(words, bytes, sizeof words);
    return ((words[0] | words[1]) & 0x8080808080808080U) == 0;
}

bool isAsciiBlock(const char16_t* units) {
    std::uint64_t words[4];
    std::memcpy(words, units, sizeof words);
    return ((words[0] | words[1] | words[2] | words[3]) & 0xFF80FF80FF80FF80U) == 0;
}

/// Copies the ASCII characters at the start of [from, end) and returns how many there are. The fixed count of
/// the inner loop is what lets compilers turn it into vector instructions.
template <class To, class From>
std::size_t copyAscii(const From* from, const From* end, To* to) {
    const From* at = from;
    for (; end - at >= static_cast<std::ptrdiff_t>(asciiBlock) && isAsciiBlock(at); at += asciiBlock) {
        for (std::size_t i = 0; i < asciiBlock; ++i) to[i] = static_cast<To>(at[i]);
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

char* putUtf8(char32_t codePoint, char* to) {
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

/// The bytes that `text` needs at most: a surrogate pair, which needs four, is counted as six.
std::size_t utf8Bound(std::u16string_view text) {
    std::size_t bytes = text.size();
    for (const char16_t unit : text) bytes += std::size_t{unit >= 0x80} + std::size_t{unit >= 0x800};
    return bytes;
}

void requireUtf8(std::string_view encoding) {
    if (encoding != "UTF-8") {
        throw std::invalid_argument("Unknown text encoding: " + std::string(encoding));
    }
}

}  // namespace

codecvt_ustring_to_string::codecvt_ustring_to_string(std::string_view encoding, bool replaceMalformed)
    : replaceMalformed_(replaceMalformed) {
    requireUtf8(encoding);
}

std::string codecvt_ustring_to_string::operator()(std::u16string_view text) const {
    std::string out(utf8Bound(text), '\0');
    char* to = out.data();
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t ascii = copyAscii(text.data() + i, text.data() + text.size(), to);
        i += ascii;
        to += ascii;
        for (; i < text.size() && text[i] >= 0x80; ++i) {
            char32_t codePoint = text[i];
            if ((codePoint & 0xFC00U) == 0xD800 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00) {
                codePoint = 0x10000 + ((codePoint & 0x3FFU) << 10U) + (text[++i] & 0x3FFU);
            } else if ((codePoint & 0xF800U) == 0xD800) {
                if (!replaceMalformed_) {
                    throw ConversionError(
                        "Malformed UTF-16 at code unit " + std::to_string(i) + ": unpaired surrogate", i);
                }
                codePoint = replacement;
            }
            to = putUtf8(codePoint, to);
        }
    }
    out.resize(static_cast<std::size_t>(to - out.data()));
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
