#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <Poco/Ascii.h>

#include "filter/Filter.h"

namespace cppmicroservices::detail {

namespace {

constexpr int deepestFilter = 100;

class Parser {
public:
    explicit Parser(std::string_view text) : text_(text) {}

    Filter parse() {
        if (text_.empty()) fail("Null query");
        Filter filter = parseFilterAt(1);
        if (!isAtEnd()) fail("Trailing garbage");
        return filter;
    }

private:
    Filter parseFilterAt(int depth) {
        if (depth > deepestFilter) fail("Malformed query: nested too deep");
        skipBlanks();
        take('(');
        skipBlanks();
        const char kind = next();
        Filter filter = kind == '&' || kind == '|' || kind == '!' ? parseCompound(depth) : parseTest();
        take(')');
        skipBlanks();
        return filter;
    }

    Filter parseCompound(int depth) {
        const char kind = text_[at_++];
        std::vector<Filter> parts;
        do {
            parts.push_back(parseFilterAt(depth + 1));
        } while (kind != '!' && next() != ')');
        return [kind, parts = std::move(parts)](const AnyMap& properties) {
            const auto matches = [&](const Filter& part) { return part(properties); };
            if (kind == '&') return std::ranges::all_of(parts, matches);
            return std::ranges::any_of(parts, matches) == (kind == '|');
        };
    }

    PropertyTest parseTest() {
        PropertyTest test{.key = parseKey(), .comparison = parseComparison(), .text = {}, .pieces = {""}};
        // The value goes up to the parenthesis that closes the test.
        for (std::size_t open = 0; open > 0 || next() != ')'; ++at_) {
            char character = next();
            if (character == '*') {
                test.text += character;
                test.pieces.emplace_back();
                continue;
            }
            if (character == '(') ++open;
            if (character == ')') --open;
            if (character == '\\') {
                ++at_;
                character = next();
            }
            test.text += character;
            test.pieces.back() += character;
        }
        return test;
    }

    std::string parseKey() {
        const std::size_t start = at_;
        while (std::string_view("()<>=~").find(next()) == std::string_view::npos) ++at_;
        std::size_t end = at_;
        while (end > start && Poco::Ascii::isSpace(text_[end - 1])) --end;
        if (end == start) fail("Malformed query: no key");
        return std::string(text_.substr(start, end - start));
    }

    Comparison parseComparison() {
        const char first = next();
        ++at_;
        if (first == '=') return Comparison::Equal;
        if ((first != '~' && first != '>' && first != '<') || next() != '=') fail("Undefined operator");
        ++at_;
        if (first == '~') return Comparison::Approximate;
        return first == '>' ? Comparison::AtLeast : Comparison::AtMost;
    }

    bool isAtEnd() const { return at_ >= text_.size(); }
    char next() const {
        if (isAtEnd()) fail("Unexpected end of query");
        return text_[at_];
    }
    void take(char expected) {
        if (next() != expected) fail(std::string("Malformed query: no ") + expected);
        ++at_;
    }
    void skipBlanks() {
        while (!isAtEnd() && Poco::Ascii::isSpace(text_[at_])) ++at_;
    }
    [[noreturn]] void fail(const std::string& what) const {
        throw std::invalid_argument(what + " at " + std::to_string(at_) + ": " + std::string(text_));
    }

    const std::string_view text_;
    std::size_t at_ = 0;
};

}  // namespace

Filter parseFilter(const std::string& text) { return Parser(text).parse(); }

}  // namespace cppmicroservices::detail
