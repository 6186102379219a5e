#pragma once

/// Conversion between UTF-16, in which the interpreter holds text, and UTF-8, in which it travels.
///
/// Threads: functions and const operations from any thread.
/// Throws: std::bad_alloc, and what is said beside each operation.

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace fl::i18n {

/// Text that is not well-formed. what() names the place and what is wrong there.
class ConversionError : public std::runtime_error {
public:
    ConversionError(const std::string& text, std::size_t offset)
        : std::runtime_error(text), offset_(offset) {}

    /// Where the malformed sequence starts. Units: bytes of UTF-8 or code units of UTF-16.
    std::size_t offset() const { return offset_; }

private:
    std::size_t offset_;
};

/// The converter from UTF-16. A surrogate pair becomes one sequence of four bytes.
class codecvt_ustring_to_string {
public:
    /// With `replaceMalformed` each unpaired surrogate becomes U+FFFD; without, the first one throws.
    /// Throws: std::invalid_argument when `encoding` is not "UTF-8".
    explicit codecvt_ustring_to_string(std::string_view encoding, bool replaceMalformed = true);

    /// Throws: ConversionError, see the constructor.
    std::string operator()(std::u16string_view text) const;

private:
    bool replaceMalformed_;
};

/// The converter to UTF-16. Overlong forms, encoded surrogates and numbers above U+10FFFF are malformed; a
/// byte order mark is a character like any other.
class codecvt_string_to_ustring {
public:
    /// Without `replaceMalformed` the first malformed sequence throws. With it, one U+FFFD stands for each
    /// maximal subpart: the longest run of bytes that starts a well-formed sequence but does not finish it,
    /// or else a single byte. "\xF0\x9F\x98" at the end is one, "\xED\xA0\x80" is three. Throws:
    /// std::invalid_argument when `encoding` is not "UTF-8".
    explicit codecvt_string_to_ustring(std::string_view encoding, bool replaceMalformed = false);

    /// Throws: ConversionError, see the constructor.
    std::u16string operator()(std::string_view bytes) const;

private:
    bool replaceMalformed_;
};

/// `text` in UTF-8; each unpaired surrogate becomes U+FFFD.
std::string to_string(std::u16string_view text);
std::string to_string(std::u16string_view text, const codecvt_ustring_to_string& converter);

/// `utf8` in UTF-16.
/// Throws: ConversionError when it is malformed.
std::u16string to_ustring(std::string_view utf8);
std::u16string to_ustring(std::string_view utf8, const codecvt_string_to_ustring& converter);

/// Decodes UTF-8 that arrives in pieces, cut anywhere. Malformed bytes become U+FFFD, one for each maximal
/// subpart, so the result does not depend on where the cuts are.
///
/// Threads: one at a time.
class Utf8Decoder {
public:
    /// Appends what `bytes` completes to `out`. Up to three bytes of an unfinished sequence wait for the next
    /// call.
    void decode(std::string_view bytes, std::u16string& out);

    /// The text ends here: a sequence that is still unfinished becomes one U+FFFD. The decoder can be used
    /// again.
    void finish(std::u16string& out);

private:
    std::string pending_;
};

}  // namespace fl::i18n
