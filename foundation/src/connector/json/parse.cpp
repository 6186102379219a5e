#include "connector/json/parse.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <system_error>
#include <utility>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/NumberFormatter.h>

#include "fl/i18n/text.h"

namespace connector::json {

namespace {

using Poco::Dynamic::Var;

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isSurrogate(unsigned unit, unsigned first) { return (unit & 0xFC00U) == first; }

class JsonParser {
public:
    JsonParser(std::string_view text, std::size_t maxDepth, std::size_t maxValues, std::string_view asText)
        : start_(text.data()),
          at_(text.data()),
          end_(text.data() + text.size()),
          maxDepth_(maxDepth),
          valuesLeft_(maxValues),
          asText_(asText) {}

    Var parse() {
        Var value = readValue();
        skipBlanks();
        if (at_ != end_) fail("unexpected text after the value");
        return value;
    }

private:
    [[noreturn]] void fail(const std::string& reason) const { failAt(at_, reason); }
    [[noreturn]] void failAt(const char* place, const std::string& reason) const {
        throw ParseError(static_cast<std::size_t>(place - start_), reason);
    }
    /// Expects what stands in `wanted`, and says what is there instead.
    [[noreturn]] void failExpecting(const char* wanted) const {
        fail(std::string("expected ") + wanted + (at_ == end_ ? " but the text ends" : ""));
    }

    char peek() const { return at_ == end_ ? '\0' : *at_; }
    void skipBlanks() {
        while (at_ != end_ && (*at_ == ' ' || *at_ == '\n' || *at_ == '\r' || *at_ == '\t')) ++at_;
    }
    bool next(char c) {
        skipBlanks();
        if (at_ == end_ || *at_ != c) return false;
        ++at_;
        return true;
    }

    Var readValue() {
        skipBlanks();
        if (valuesLeft_-- == 0)
            throw TooManyValues(static_cast<std::size_t>(at_ - start_), "too many values");
        switch (peek()) {
            case '{':
                return readObject();
            case '[':
                return readArray();
            case '"':
                ++at_;
                return readString();
            case 't':
                return readWord("true", true);
            case 'f':
                return readWord("false", false);
            case 'n':
                return readWord("null", Var());
            default:
                if (peek() == '-' || isDigit(peek())) return readNumber();
                failExpecting("a value");
        }
    }

    Var readWord(std::string_view word, Var value) {
        if (std::string_view(at_, static_cast<std::size_t>(end_ - at_)).substr(0, word.size()) != word)
            failExpecting("a value");
        at_ += word.size();
        return value;
    }

    void enter() {
        if (++depth_ > maxDepth_) fail("arrays and objects are nested too deeply");
        ++at_;
    }

    Var readArray() {
        enter();
        Poco::JSON::Array::Ptr array = new Poco::JSON::Array;
        if (!next(']')) {
            do array->add(readValue());
            while (next(','));
            if (!next(']')) failExpecting("',' or ']'");
        }
        --depth_;
        return array;
    }

    Var readObject() {
        enter();
        Poco::JSON::Object::Ptr object = new Poco::JSON::Object;
        if (!next('}')) {
            do {
                if (!next('"')) failExpecting("a key in quotes");
                std::string key = readString();
                if (!next(':')) failExpecting("':'");
                object->set(key, readMember(key));
            } while (next(','));
            if (!next('}')) failExpecting("',' or '}'");
        }
        --depth_;
        return object;
    }

    Var readNumber() {
        const char* const first = at_;
        if (skipNumber()) return integer(first);
        return real(first);
    }
    /// Whether it is an integer.
    bool skipNumber() {
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
    void skipDigits() {
        if (!isDigit(peek())) failExpecting("a digit");
        while (at_ != end_ && isDigit(*at_)) ++at_;
    }
    Var integer(const char* first) const {
        Poco::Int64 value = 0;
        if (std::from_chars(first, at_, value).ec == std::errc()) return value;
        Poco::UInt64 large = 0;
        if (*first != '-' && std::from_chars(first, at_, large).ec == std::errc()) return large;
        return real(first);
    }
    double real(const char* first) const {
        double value = 0;
        if (std::from_chars(first, at_, value).ec == std::errc()) return value;
        // What is too small has a nearest number, which is zero.
        if (!isTooSmall({first, at_})) failAt(first, "number out of the range of a double");
        return *first == '-' ? -0.0 : 0.0;
    }
    /// Of a number that is out of range: whether it is below it, by the place of its first digit that counts.
    static bool isTooSmall(std::string_view number) {
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

    // After the opening quote, up to after the closing one.
    std::string readString() {
        std::string text;
        readString(text);
        return text;
    }
    void readString(std::string& text) {
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
    void appendPlain(std::string& text) {
        const char* const first = at_;
        unsigned char all = 0;
        while (at_ != end_ && *at_ != '"' && *at_ != '\\' && static_cast<unsigned char>(*at_) >= 0x20)
            all |= static_cast<unsigned char>(*at_++);
        const std::string_view plain(first, static_cast<std::size_t>(at_ - first));
        if (all >= 0x80) requireUtf8(plain, first);
        text.append(plain);
    }
    void requireUtf8(std::string_view text, const char* place) const {
        try {
            fl::i18n::to_ustring(text);
        } catch (const fl::i18n::ConversionError& error) {
            const std::string what = error.what();
            failAt(place + error.offset(), "malformed UTF-8" + what.substr(what.rfind(':')));
        }
    }
    void appendEscape(std::string& text) {
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
    void appendCodePoint(std::string& text) {
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
    char16_t readUnit() {
        std::uint16_t unit = 0;
        if (end_ - at_ < 5) fail("incomplete escape sequence");
        const auto [stop, error] = std::from_chars(at_ + 1, at_ + 5, unit, 16);
        if (error != std::errc() || stop != at_ + 5) failAt(at_ + 1, "expected four hexadecimal digits");
        at_ += 5;
        return unit;
    }

    // ---- values that stay text ----

    Var readMember(const std::string& key) {
        skipBlanks();
        if (asText_.empty() || key != asText_ || (peek() != '[' && peek() != '{')) return readValue();
        auto json = std::make_shared<std::string>();
        rewriteValue(*json);
        json->shrink_to_fit();
        return Text{std::move(json)};
    }

    void rewriteValue(std::string& out) {
        skipBlanks();
        const char* const first = at_;
        if (peek() == '[') return rewriteArray(out);
        if (peek() == '{') return rewriteObject(out);
        if (peek() == '-' || isDigit(peek())) return rewriteNumber(out);
        peek() == '"' ? skipString() : skipWord();
        out.append(first, at_);
    }

    void skipWord() {
        switch (peek()) {
            case 't':
                return void(readWord("true", true));
            case 'f':
                return void(readWord("false", false));
            default:
                readWord("null", Var());
        }
    }

    void rewriteArray(std::string& out) {
        enter();
        out.push_back('[');
        if (!next(']')) {
            bool isMore = true;
            while (isMore) {
                rewriteValue(out);
                isMore = next(',');
                if (isMore) out.push_back(',');
            }
            if (!next(']')) failExpecting("',' or ']'");
        }
        out.push_back(']');
        --depth_;
    }

    void rewriteObject(std::string& out) {
        enter();
        std::vector<std::size_t> members;  // where in `out` they begin
        bool isInOrder = true;
        out.push_back('{');
        if (!next('}')) {
            do {
                if (!members.empty()) out.push_back(',');
                members.push_back(out.size());
                rewriteKey(out);
                const std::size_t count = members.size();
                isInOrder = isInOrder &&
                            (count < 2 || keyAt(out, members[count - 2]) < keyAt(out, members[count - 1]));
                rewriteValue(out);
            } while (next(','));
            if (!next('}')) failExpecting("',' or '}'");
        }
        if (!isInOrder) putInOrder(out, members);
        out.push_back('}');
        --depth_;
    }

    /// In the one form that a key has, so that equal ones are found.
    void rewriteKey(std::string& out) {
        skipBlanks();
        if (peek() != '"') failExpecting("a key in quotes");
        const char* const first = at_;
        skipString();
        const std::string_view token(first, static_cast<std::size_t>(at_ - first));
        if (token.find('\\') == std::string_view::npos) {
            out += token;
        } else {
            out.push_back('"');
            for (const char c : scratch_) appendMinimal(out, c);
            out.push_back('"');
        }
        if (!next(':')) failExpecting("':'");
        out.push_back(':');
    }
    static void appendMinimal(std::string& out, char c) {
        constexpr std::string_view digits = "0123456789abcdef";
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20) {
            out += "\\u00";
            out.push_back(digits[byte >> 4U]);
            out.push_back(digits[byte & 15U]);
            return;
        }
        if (c == '"' || c == '\\') out.push_back('\\');
        out.push_back(c);
    }

    static std::string_view keyAt(std::string_view json, std::size_t start) {
        std::size_t end = start + 1;
        while (json[end] != '"') end += json[end] == '\\' ? 2 : 1;
        return json.substr(start + 1, end - start - 1);
    }
    static void putInOrder(std::string& out, const std::vector<std::size_t>& members) {
        std::vector<std::string_view> texts;
        texts.reserve(members.size());
        for (std::size_t i = 0; i < members.size(); ++i) {
            const std::size_t end = i + 1 < members.size() ? members[i + 1] - 1 : out.size();
            texts.push_back(std::string_view(out).substr(members[i], end - members[i]));
        }
        // Of equal ones the last comes first, and is the one that stays.
        std::ranges::sort(texts, [](std::string_view left, std::string_view right) {
            const int order = keyAt(left, 0).compare(keyAt(right, 0));
            return order != 0 ? order < 0 : left.data() > right.data();
        });
        std::string ordered;
        ordered.reserve(out.size() - members.front());
        std::string_view last;
        for (const std::string_view text : texts) {
            if (!ordered.empty() && keyAt(text, 0) == last) continue;
            last = keyAt(text, 0);
            if (!ordered.empty()) ordered.push_back(',');
            ordered += text;
        }
        out.replace(members.front(), std::string::npos, ordered);
    }

    void rewriteNumber(std::string& out) {
        constexpr std::ptrdiff_t surelyFits = 18;
        const char* const first = at_;
        const bool isInteger = skipNumber();
        const std::string_view token(first, static_cast<std::size_t>(at_ - first));
        if (token == "-0") {
            out.push_back('0');
        } else if (isInteger && (at_ - first <= surelyFits || integer(first).type() != typeid(double))) {
            out += token;
        } else {
            Poco::NumberFormatter::append(out, real(first));
        }
    }

    void skipString() {
        ++at_;
        scratch_.clear();
        readString(scratch_);
    }

    const char* const start_;
    const char* at_;
    const char* const end_;
    const std::size_t maxDepth_;
    std::size_t valuesLeft_;
    const std::string_view asText_;
    std::string scratch_;
    std::size_t depth_ = 0;
};

}  // namespace

Var parse(std::string_view text, std::size_t depth, std::size_t values, std::string_view asText) {
    return JsonParser(text, depth, values, asText).parse();
}

namespace {

void expandWithin(const Var& value);

Var expanded(const Text& text) { return parse(*text.json); }

void expandWithin(Poco::JSON::Array::Ptr array) {
    for (unsigned i = 0; i < array->size(); ++i) {
        const Var element = array->get(i);
        if (element.type() == typeid(Text)) array->set(i, expanded(element.extract<Text>()));
        expandWithin(element);
    }
}

void expandWithin(const Var& value) {
    if (value.type() == typeid(Poco::JSON::Array::Ptr)) expandWithin(value.extract<Poco::JSON::Array::Ptr>());
    if (value.type() == typeid(Poco::JSON::Object::Ptr))
        expandTexts(value.extract<Poco::JSON::Object::Ptr>());
}

}  // namespace

void expandTexts(Poco::JSON::Object::Ptr object) {
    std::vector<std::string> texts;
    for (const auto& [name, value] : std::as_const(*object)) {
        if (value.type() == typeid(Text)) texts.push_back(name);
        expandWithin(value);
    }
    for (const auto& name : texts) object->set(name, expanded(object->get(name).extract<Text>()));
}

void forEachElement(const Text& array, const std::function<void(std::string_view)>& action) {
    const std::string_view json = *array.json;
    std::size_t depth = 0;
    std::size_t begin = 1;
    for (std::size_t at = 0; at < json.size(); ++at) {
        const char c = json[at];
        if (c == '"') {
            for (++at; json[at] != '"'; ++at) at += json[at] == '\\' ? 1 : 0;
        } else if (c == '[' || c == '{') {
            ++depth;
        } else if (c == ']' || c == '}') {
            --depth;
        }
        const bool isEnd = depth == 0;
        if (isEnd ? at > begin : (depth == 1 && c == ',')) {
            action(json.substr(begin, at - begin));
            begin = at + 1;
        }
    }
}

}  // namespace connector::json
