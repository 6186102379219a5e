#include "jupyter/wire/rawMembers.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace jupyter::wire {

namespace {

/// Walks over a text from its beginning.
class Walk {
public:
    explicit Walk(std::string_view text) : text_(text) {}

    char next() {
        skipBlanks();
        return at_ < text_.size() ? text_[at_] : fail();
    }
    bool take(char wanted) {
        if (next() != wanted) return false;
        ++at_;
        return true;
    }
    void require(char wanted) {
        if (!take(wanted)) fail();
    }
    /// Without its quotes.
    std::string_view string() {
        require('"');
        const auto begin = at_;
        while (at_ < text_.size() && text_[at_] != '"') at_ += text_[at_] == '\\' ? 2 : 1;
        if (at_ >= text_.size()) fail();
        return text_.substr(begin, at_++ - begin);
    }
    std::string_view value() {
        next();
        const auto begin = at_;
        std::string closers;
        do {
            const char c = next();
            if (c == '"') {
                string();
            } else if (c == '{' || c == '[') {
                closers.push_back(c == '{' ? '}' : ']');
                ++at_;
            } else if (!closers.empty() && c == closers.back()) {
                closers.pop_back();
                ++at_;
            } else if (!closers.empty() && (c == ',' || c == ':')) {
                ++at_;
            } else {
                word();
            }
        } while (!closers.empty());
        return text_.substr(begin, at_ - begin);
    }
    bool isAtEnd() {
        skipBlanks();
        return at_ == text_.size();
    }

private:
    [[noreturn]] static char fail() { throw std::invalid_argument("A message must hold JSON objects."); }
    void skipBlanks() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }
    void word() {
        const auto end = std::min(text_.find_first_of(" \t\r\n,:{}[]\"", at_), text_.size());
        if (end == at_) fail();
        at_ = end;
    }

    const std::string_view text_;
    std::size_t at_ = 0;
};

}  // namespace

RawMembers rawMembers(std::string_view json) {
    Walk walk(json);
    RawMembers members;
    walk.require('{');
    if (walk.next() != '}') {
        do {
            const auto name = walk.string();
            walk.require(':');
            members.emplace_back(name, walk.value());
        } while (walk.take(','));
    }
    walk.require('}');
    if (!walk.isAtEnd()) throw std::invalid_argument("A message must end with its JSON object.");
    return members;
}

std::string_view valueOf(const RawMembers& members, std::string_view name) {
    // The last of that name counts, as everywhere.
    const auto isNamed = [&](const auto& member) { return member.first == name; };
    const auto found = std::find_if(members.rbegin(), members.rend(), isNamed);
    return found == members.rend() ? std::string_view() : found->second;
}

std::string_view textIn(std::string_view json, std::string_view name) {
    const auto value = valueOf(rawMembers(json), name);
    if (!value.starts_with('"') || value.find('\\') != std::string_view::npos) return {};
    return value.substr(1, value.size() - 2);
}

}  // namespace jupyter::wire
