#include "connector/json/Rewriter.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

#include <Poco/NumberFormatter.h>

namespace connector::json {

namespace {

void appendMinimal(std::string& out, char c) {
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

std::string_view keyAt(std::string_view json, std::size_t start) {
    std::size_t end = start + 1;
    while (json[end] != '"') end += json[end] == '\\' ? 2 : 1;
    return json.substr(start + 1, end - start - 1);
}

void putInOrder(std::string& out, const std::vector<std::size_t>& members) {
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

}  // namespace

void Rewriter::write(std::string& out) {
    scan_.skipBlanks();
    const char* const first = scan_.place();
    switch (scan_.peek()) {
        case '[':
            return rewriteArray(out);
        case '{':
            return rewriteObject(out);
        case '"':
            skipString();
            break;
        case 't':
            scan_.skipWord("true");
            break;
        case 'f':
            scan_.skipWord("false");
            break;
        default:
            if (scan_.peek() == '-' || isDigit(scan_.peek())) return rewriteNumber(out);
            scan_.skipWord("null");
    }
    out += scan_.since(first);
}

void Rewriter::rewriteArray(std::string& out) {
    scan_.enter();
    out.push_back('[');
    if (!scan_.next(']')) {
        bool isMore = true;
        while (isMore) {
            write(out);
            isMore = scan_.next(',');
            if (isMore) out.push_back(',');
        }
        if (!scan_.next(']')) scan_.failExpecting("',' or ']'");
    }
    out.push_back(']');
    scan_.leave();
}

void Rewriter::rewriteObject(std::string& out) {
    scan_.enter();
    std::vector<std::size_t> members;  // where in `out` they begin
    bool isInOrder = true;
    out.push_back('{');
    if (!scan_.next('}')) {
        do {
            if (!members.empty()) out.push_back(',');
            members.push_back(out.size());
            rewriteKey(out);
            const std::size_t count = members.size();
            isInOrder =
                isInOrder && (count < 2 || keyAt(out, members[count - 2]) < keyAt(out, members[count - 1]));
            write(out);
        } while (scan_.next(','));
        if (!scan_.next('}')) scan_.failExpecting("',' or '}'");
    }
    if (!isInOrder) putInOrder(out, members);
    out.push_back('}');
    scan_.leave();
}

// In the one form that a key has, so that equal ones are found.
void Rewriter::rewriteKey(std::string& out) {
    scan_.skipBlanks();
    if (scan_.peek() != '"') scan_.failExpecting("a key in quotes");
    const char* const first = scan_.place();
    skipString();
    const std::string_view token = scan_.since(first);
    if (token.find('\\') == std::string_view::npos) {
        out += token;
    } else {
        out.push_back('"');
        for (const char c : scratch_) appendMinimal(out, c);
        out.push_back('"');
    }
    if (!scan_.next(':')) scan_.failExpecting("':'");
    out.push_back(':');
}

void Rewriter::rewriteNumber(std::string& out) {
    constexpr std::size_t surelyFits = 18;
    const char* const first = scan_.place();
    const bool isInteger = scan_.skipNumber();
    const std::string_view token = scan_.since(first);
    if (token == "-0") {
        out.push_back('0');
    } else if (isInteger && (token.size() <= surelyFits || scan_.integer(first).type() != typeid(double))) {
        out += token;
    } else {
        Poco::NumberFormatter::append(out, scan_.real(first));
    }
}

void Rewriter::skipString() {
    scan_.next('"');
    scratch_.clear();
    scan_.readString(scratch_);
}

}  // namespace connector::json
