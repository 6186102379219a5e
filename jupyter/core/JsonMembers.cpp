#include "JsonMembers.h"

#include <cstddef>
#include <typeinfo>

#include "connector/json/parse.h"

namespace jupyter {

namespace {

constexpr std::string_view blanks = " \t\r\n";

std::size_t afterBlanks(std::string_view text, std::size_t at) {
    return std::min(text.find_first_not_of(blanks, at), text.size());
}

// After the string that begins here.
std::size_t afterString(std::string_view text, std::size_t at) {
    for (++at; at < text.size(); ++at) {
        at = text.find_first_of("\"\\", at);
        if (at == std::string_view::npos) break;
        if (text[at] == '"') return at + 1;
        ++at;  // whatever is escaped
    }
    return text.size();
}

// After the value that begins here.
std::size_t afterValue(std::string_view text, std::size_t at) {
    std::size_t depth = 0;
    while (at < text.size()) {
        switch (text[at]) {
            case '"':
                at = afterString(text, at);
                break;
            case '{':
            case '[':
                ++depth;
                ++at;
                break;
            case '}':
            case ']':
                if (depth == 0) return at;
                --depth;
                ++at;
                break;
            case ',':
                if (depth == 0) return at;
                ++at;
                break;
            default:
                at = text.find_first_of("\"{}[],", at + 1);
                if (at == std::string_view::npos) return text.size();
        }
    }
    return text.size();
}

std::string_view trimmed(std::string_view text) {
    const std::size_t begin = afterBlanks(text, 0);
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

}  // namespace

std::string_view JsonMembers::json(std::string_view name) const {
    std::size_t at = object_.find('{');
    while (at < object_.size()) {
        at = afterBlanks(object_, at + 1);
        if (at >= object_.size() || object_[at] != '"') break;
        const std::size_t nameEnd = afterString(object_, at);
        const auto key = object_.substr(at + 1, nameEnd - at - 2);
        const std::size_t begin = object_.find(':', nameEnd);
        if (begin == std::string_view::npos) break;
        const std::size_t end = afterValue(object_, begin + 1);
        if (key == name) return trimmed(object_.substr(begin + 1, end - begin - 1));
        at = end;
    }
    return {};
}

std::string JsonMembers::text(std::string_view name, std::string otherwise) const {
    const auto value = json(name);
    return value.starts_with('"') ? textOf(value) : std::move(otherwise);
}

std::string JsonMembers::jsonOr(std::string_view name, std::string_view otherwise) const {
    const auto value = json(name);
    return std::string(value.empty() || value == "null" ? otherwise : value);
}

std::string textOf(std::string_view json) {
    const auto value = connector::json::parse(json);
    return value.type() == typeid(std::string) ? value.extract<std::string>() : std::string();
}

std::string_view elementsOf(std::string_view array) {
    const auto whole = trimmed(array);
    return whole.size() < 2 ? std::string_view() : trimmed(whole.substr(1, whole.size() - 2));
}

}  // namespace jupyter
