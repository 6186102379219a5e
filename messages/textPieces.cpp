#include "textPieces.h"

#include <algorithm>

namespace messages {

namespace {

constexpr std::size_t unitSize = 6;  // of \uXXXX

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; }

bool isHighSurrogate(std::string_view escape) {
    if (escape.size() < unitSize || (escape[2] != 'd' && escape[2] != 'D')) return false;
    return std::string_view("89abAB").find(escape[3]) != std::string_view::npos;
}

// The size of the character whose escape stands at the beginning.
std::size_t escapeSize(std::string_view text) {
    if (text.size() < 2 || text[1] != 'u') return std::min<std::size_t>(text.size(), 2);
    const bool isPair = isHighSurrogate(text) && text.substr(unitSize).starts_with("\\u");
    return std::min(text.size(), isPair ? 2 * unitSize : unitSize);
}

std::size_t characterSize(std::string_view text) {
    if (text.front() == '\\') return escapeSize(text);
    std::size_t size = 1;
    while (size < text.size() && isContinuation(text[size])) ++size;
    return size;
}

}  // namespace

std::size_t firstPiece(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return text.size();
    std::size_t end = 0;  // everything before it is whole
    for (;;) {
        const std::size_t escape = std::min(text.find('\\', end), text.size());
        if (escape >= limit) break;
        const std::size_t next = escape + escapeSize(text.substr(escape));
        if (next > limit) return std::max(escape, characterSize(text));
        end = next;
    }
    std::size_t cut = limit;
    while (cut > end && isContinuation(text[cut])) --cut;
    return std::max(cut, characterSize(text));
}

}  // namespace messages
