#include "lenientJson.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <stdexcept>

#include "connector/json/parse.h"

namespace jupyter {

namespace {

constexpr std::size_t deepest = 1000;
constexpr std::size_t mostValues = 100'000;
constexpr std::size_t escapeSize = 6;  // of \uXXXX

// The unit of an escape that begins here.
std::optional<std::uint16_t> escapedUnit(std::string_view text) {
    if (text.size() < escapeSize || !text.starts_with("\\u")) return std::nullopt;
    std::uint16_t unit = 0;
    const char* const end = text.data() + escapeSize;
    return std::from_chars(text.data() + 2, end, unit, 16).ptr == end ? std::optional(unit) : std::nullopt;
}

bool isHighSurrogate(std::uint16_t unit) { return (unit & 0xFC00) == 0xD800; }
bool isLowSurrogate(std::uint16_t unit) { return (unit & 0xFC00) == 0xDC00; }

// What an escape sequence is to be, and how many characters that takes the place of.
std::pair<std::string_view, std::size_t> repairedEscape(std::string_view text) {
    const auto unit = escapedUnit(text);
    if (!unit) return {text.substr(0, 2), 2};
    if (isHighSurrogate(*unit)) {
        const auto next = escapedUnit(text.substr(escapeSize));
        if (next && isLowSurrogate(*next)) return {text.substr(0, 2 * escapeSize), 2 * escapeSize};
    }
    const bool isHalf = isHighSurrogate(*unit) || isLowSurrogate(*unit);
    return {isHalf ? "\\ufffd" : text.substr(0, escapeSize), escapeSize};
}

}  // namespace

std::string repaired(std::string_view json) {
    constexpr std::array<std::string_view, 3> noNumbers = {"NaN", "-Infinity", "Infinity"};
    std::string result;
    result.reserve(json.size());
    bool isInString = false;
    while (!json.empty()) {
        std::pair<std::string_view, std::size_t> next{json.substr(0, 1), 1};
        if (isInString && json.front() == '\\') {
            next = repairedEscape(json);
        } else if (json.front() == '"') {
            isInString = !isInString;
        } else if (!isInString) {
            for (const auto word : noNumbers) {
                if (json.starts_with(word)) next = {"null", word.size()};
            }
        }
        result.append(next.first);
        json.remove_prefix(std::min(next.second, json.size()));
    }
    return result;
}

Poco::JSON::Object::Ptr parseLeniently(std::string& json, std::string_view asText) {
    using connector::json::parse;
    Poco::Dynamic::Var value;
    try {
        value = parse(json, deepest, mostValues, asText);
    } catch (const connector::json::TooManyValues&) {
        throw;
    } catch (const connector::json::ParseError&) {
        std::string changed = repaired(json);
        value = parse(changed, deepest, mostValues, asText);
        json = std::move(changed);
    }
    if (value.type() != typeid(Poco::JSON::Object::Ptr)) throw std::invalid_argument("it is no object");
    return value.extract<Poco::JSON::Object::Ptr>();
}

}  // namespace jupyter
