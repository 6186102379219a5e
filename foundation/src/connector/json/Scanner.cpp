#include "connector/json/Scanner.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <system_error>

#include "fl/i18n/text.h"

namespace connector::json {

using Poco::Dynamic::Var;

namespace {

bool isSurrogate(unsigned unit, unsigned first) { return (unit & 0xFC00U) == first; }

// Of a number that is out of range: whether it is below it, by the place of its first digit that counts.
bool isTooSmall(std::string_view number) {
    const auto mantissa = number.substr(0, number.find_first_of("eE"));
    const auto first = mantissa.find_first_of("123456789");
    if (first == std::string_view::npos) return true;  // a zero
    const auto point = std::min(mantissa.find('.'), mantissa.size());
    auto exponent = number.substr(std::min(mantissa.size() + 1, number.size()));
    if (exponent.starts_with('+')) exponent.remove_prefix(1);
    std::int64_t scale = 0;
    const auto parsed = std::from_chars(exponent.data(), exponent.data() + exponent.size(), scale);
    if (parsed.ec == std::errc::result_out_of_range) return exponent.starts_with('-');
    return scale + static_cast<std::int64_t>(point) < static_cast<std::int64_t>(first);
}

}  // namespace

void Scanner::failAt(const char* place, const std::string& reason) const {
    throw ParseError(static_cast<std::size_t>(place - start_), reason);
}

void Scanner::failExpecting(const char* wanted) const {
    fail(std::string("expected ") + wanted + (at_ == end_ ? " but the text ends" : ""));
}

void Scanner::skipWord(std::string_view word) {
    if (std::string_view(at_, static_cast<std::size_t>(end_ - at_)).substr(0, word.size()) != word)
        failExpecting("a value");
    at_ += word.size();
}

bool Scanner::skipNumber() {
    bool isInteger = true;
    if (*at_ == '-') ++at_;
    const char* const digits = at_;
    skipDigits();
    if (*digits == '0' && at_ - digits > 1) failAt(digits, "leading zero in a number");
    if (peek() == '.') {
        isInteger = false;
        ++at_;
        skipDigits();
    }
    if (peek() == 'e' || peek() == 'E') {
        isInteger = false;
        ++at_;
        if (peek() == '+' || peek() == '-') ++at_;
        skipDigits();
    }
    return isInteger;
}

void Scanner::skipDigits() {
    if (!isDigit(peek())) failExpecting("a digit");
    while (at_ != end_ && isDigit(*at_)) ++at_;
}

Var Scanner::integer(const char* first) const {
    Poco::Int64 value = 0;
    if (std::from_chars(first, at_, value).ec == std::errc()) return value;
    Poco::UInt64 large = 0;
    if (*first != '-' && std::from_chars(first, at_, large).ec == std::errc()) return large;
    return real(first);
}

double Scanner::real(const char* first) const {
    double value = 0;
    if (std::from_chars(first, at_, value).ec == std::errc()) return value;
    // What is too small has a nearest number, which is zero.
    if (!isTooSmall({first, at_})) failAt(first, "number out of the range of a double");
    return *first == '-' ? -0.0 : 0.0;
}

void Scanner::readString(std::string& text) {
    for (;;) {
        appendPlain(text);
        if (at_ == end_) fail("unterminated string");
        const char c = *at_++;
        if (c == '"') return;
        if (c != '\\') failAt(at_ - 1, "unescaped control character in a string");
        appendEscape(text);
    }
}

// What stands for itself, which is nearly everything.
void Scanner::appendPlain(std::string& text) {
    const char* const first = at_;
    unsigned char all = 0;
    while (at_ != end_ && *at_ != '"' && *at_ != '\\' && static_cast<unsigned char>(*at_) >= 0x20)
        all |= static_cast<unsigned char>(*at_++);
    const std::string_view plain(first, static_cast<std::size_t>(at_ - first));
    if (all >= 0x80) requireUtf8(plain, first);
    text.append(plain);
}

void Scanner::requireUtf8(std::string_view text, const char* place) const {
    try {
        fl::i18n::to_ustring(text);
    } catch (const fl::i18n::ConversionError& error) {
        const std::string what = error.what();
        failAt(place + error.offset(), "malformed UTF-8" + what.substr(what.rfind(':')));
    }
}

void Scanner::appendEscape(std::string& text) {
    static constexpr std::string_view letters = "\"\\/bfnrt";
    static constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
    if (const auto which = letters.find(peek()); at_ != end_ && which != std::string_view::npos) {
        ++at_;
        text.push_back(meanings[which]);
    } else if (peek() == 'u') {
        appendCodePoint(text);
    } else {
        failAt(at_ - 1, "invalid escape sequence");
    }
}

// At the letter u.
void Scanner::appendCodePoint(std::string& text) {
    const char* const place = at_ - 1;
    std::u16string units(1, readUnit());
    if (isSurrogate(units[0], 0xD800) && end_ - at_ > 1 && at_[0] == '\\' && at_[1] == 'u') {
        ++at_;
        units.push_back(readUnit());
    }
    try {
        static const fl::i18n::codecvt_ustring_to_string strict("UTF-8", false);
        text += strict(units);
    } catch (const fl::i18n::ConversionError&) {
        failAt(place, "unpaired surrogate");
    }
}

char16_t Scanner::readUnit() {
    std::uint16_t unit = 0;
    if (end_ - at_ < 5) fail("incomplete escape sequence");
    const auto [stop, error] = std::from_chars(at_ + 1, at_ + 5, unit, 16);
    if (error != std::errc() || stop != at_ + 5) failAt(at_ + 1, "expected four hexadecimal digits");
    at_ += 5;
    return unit;
}

}  // namespace connector::json
