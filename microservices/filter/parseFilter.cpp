#include <stdexcept>
#include <string_view>

#include "asciiCase.h"
#include "filter/FilterNode.h"

namespace cppmicroservices::detail {

namespace {

class Parser {
public:
    explicit Parser(std::string_view text) : text_(text) {}

    FilterNode parse() {
        if (text_.empty()) fail("Null query");
        FilterNode filter = parseFilterAt(1);
        if (!isAtEnd()) fail("Trailing garbage");
        return filter;
    }

private:
    FilterNode parseFilterAt(int depth) {
        if (depth > deepestFilter) fail("Malformed query: nested too deep");
        skipBlanks();
        if (next() != '(') fail("Malformed query: no opening parenthesis");
        ++at_;
        skipBlanks();
        FilterNode filter = parseBody(depth);
        if (next() != ')') fail("Malformed query: no closing parenthesis");
        ++at_;
        skipBlanks();
        return filter;
    }

    FilterNode parseBody(int depth) {
        switch (next()) {
            case '&':
                return parseCompound(FilterKind::And, depth);
            case '|':
                return parseCompound(FilterKind::Or, depth);
            case '!':
                return parseCompound(FilterKind::Not, depth);
            default:
                return parseTest();
        }
    }

    FilterNode parseCompound(FilterKind kind, int depth) {
        ++at_;
        FilterNode filter{.kind = kind, .children = {}, .key = {}, .value = {}};
        do {
            filter.children.push_back(parseFilterAt(depth + 1));
        } while (kind != FilterKind::Not && next() != ')');
        return filter;
    }

    FilterNode parseTest() {
        FilterNode test{.kind = FilterKind::Equal, .children = {}, .key = parseKey(), .value = {}};
        test.kind = parseOperator();
        test.value = parseValue();
        return test;
    }

    std::string parseKey() {
        const std::size_t start = at_;
        while (std::string_view("()<>=~").find(next()) == std::string_view::npos) ++at_;
        std::size_t end = at_;
        while (end > start && isBlank(text_[end - 1])) --end;
        if (end == start) fail("Malformed query: no key");
        return std::string(text_.substr(start, end - start));
    }

    FilterKind parseOperator() {
        const char first = next();
        ++at_;
        if (first == '=') return FilterKind::Equal;
        if ((first != '~' && first != '>' && first != '<') || next() != '=') fail("Undefined operator");
        ++at_;
        if (first == '~') return FilterKind::Approximate;
        return first == '>' ? FilterKind::AtLeast : FilterKind::AtMost;
    }

    /// Up to the parenthesis that closes the test.
    FilterValue parseValue() {
        FilterValue value;
        value.pieces.emplace_back();
        for (std::size_t open = 0; open > 0 || next() != ')'; ++at_) {
            char character = next();
            if (character == '*') {
                value.text += character;
                value.pieces.emplace_back();
                continue;
            }
            if (character == '(') ++open;
            if (character == ')') --open;
            if (character == '\\') {
                ++at_;
                character = next();
            }
            value.text += character;
            value.pieces.back() += character;
        }
        return value;
    }

    bool isAtEnd() const { return at_ >= text_.size(); }
    char next() const {
        if (isAtEnd()) fail("Unexpected end of query");
        return text_[at_];
    }
    void skipBlanks() {
        while (!isAtEnd() && isBlank(text_[at_])) ++at_;
    }
    [[noreturn]] void fail(const std::string& what) const {
        throw std::invalid_argument(what + " at " + std::to_string(at_) + ": " + std::string(text_));
    }

    const std::string_view text_;
    std::size_t at_ = 0;
};

}  // namespace

FilterNode parseFilter(const std::string& text) { return Parser(text).parse(); }

}  // namespace cppmicroservices::detail
