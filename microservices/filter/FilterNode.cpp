#include "filter/FilterNode.h"

#include <algorithm>

#include "asciiCase.h"

namespace cppmicroservices::detail {

namespace {

const char* symbol(FilterKind kind) {
    switch (kind) {
        case FilterKind::And:
            return "&";
        case FilterKind::Or:
            return "|";
        case FilterKind::Not:
            return "!";
        case FilterKind::Equal:
            return "=";
        case FilterKind::Approximate:
            return "~=";
        case FilterKind::AtLeast:
            return ">=";
        case FilterKind::AtMost:
            return "<=";
    }
    return "";
}

std::string valueText(const FilterValue& value) {
    std::string text;
    for (const std::string& piece : value.pieces) {
        if (&piece != &value.pieces.front()) text += '*';
        for (const char character : piece) {
            if (std::string_view("()*\\").find(character) != std::string_view::npos) text += '\\';
            text += character;
        }
    }
    return text;
}

const Any* find(const AnyMap& properties, const std::string& key, bool byCase) {
    const auto isKey = [&](const auto& property) {
        return byCase ? property.first == key : equalsIgnoringCase(property.first, key);
    };
    const auto found = std::ranges::find_if(properties, isKey);
    return found != properties.end() ? &found->second : nullptr;
}

}  // namespace

std::string filterText(const FilterNode& filter) {
    std::string text = "(" + filter.key + symbol(filter.kind);
    for (const FilterNode& child : filter.children) text += filterText(child);
    return text + valueText(filter.value) + ")";
}

bool matches(const FilterNode& filter, const AnyMap& properties, bool keysByCase) {
    const auto isMatch = [&](const FilterNode& child) { return matches(child, properties, keysByCase); };
    switch (filter.kind) {
        case FilterKind::And:
            return std::ranges::all_of(filter.children, isMatch);
        case FilterKind::Or:
            return std::ranges::any_of(filter.children, isMatch);
        case FilterKind::Not:
            return !isMatch(filter.children.front());
        default:
            break;
    }
    const Any* value = find(properties, filter.key, keysByCase);
    if (value == nullptr || value->Empty()) return false;
    if (filter.kind == FilterKind::Equal && filter.value.isPresence()) return true;
    return matchesValue(filter, *value);
}

bool mentions(const FilterNode& filter, const std::string& key) {
    return equalsIgnoringCase(filter.key, key) ||
           std::ranges::any_of(filter.children,
                               [&](const FilterNode& child) { return mentions(child, key); });
}

}  // namespace cppmicroservices::detail
