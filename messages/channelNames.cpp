#include "messages/channelNames.h"

#include <algorithm>
#include <stdexcept>

namespace messages {

namespace {

constexpr std::string_view oneSegment = "*";
constexpr std::string_view allSegments = "**";

// Cuts the first segment, and the "/" before it, off `rest`, which is not empty.
std::string_view cutSegment(std::string_view& rest) {
    rest.remove_prefix(1);
    const auto segment = rest.substr(0, rest.find('/'));
    rest.remove_prefix(segment.size());
    return segment;
}

bool isSegmentCharacter(char c) {
    constexpr std::string_view signs = "-_!~()$@.";
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           signs.find(c) != std::string_view::npos;
}

bool isPlainSegment(std::string_view segment) {
    return !segment.empty() && std::all_of(segment.begin(), segment.end(), isSegmentCharacter);
}

bool isValid(std::string_view text, bool mayHaveWildcards) {
    if (!text.starts_with('/')) return false;
    while (!text.empty()) {
        const auto segment = cutSegment(text);
        const bool isWildcard = segment == oneSegment || (segment == allSegments && text.empty());
        if (!isPlainSegment(segment) && !(mayHaveWildcards && isWildcard)) return false;
    }
    return true;
}

}  // namespace

bool isChannelName(std::string_view text) { return isValid(text, false); }

bool isChannelPattern(std::string_view text) { return isValid(text, true); }

const std::string& requirePattern(const std::string& pattern) {
    if (!isChannelPattern(pattern)) throw std::invalid_argument("Malformed channel pattern");
    return pattern;
}

void requireMessage(std::string_view channel, std::string_view data) {
    if (!isChannelName(channel)) throw std::invalid_argument("Malformed channel name");
    if (data.empty()) throw std::invalid_argument("A message without data");
}

bool canMatch(std::string_view pattern, std::string_view other) {
    while (!pattern.empty() && !other.empty()) {
        const auto left = cutSegment(pattern);
        const auto right = cutSegment(other);
        if (left == allSegments || right == allSegments) return true;
        if (left != right && left != oneSegment && right != oneSegment) return false;
    }
    return pattern.empty() && other.empty();
}

}  // namespace messages
