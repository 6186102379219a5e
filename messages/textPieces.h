#pragma once

/// Cuts long text into messages that can wait, be written and be lost one by one.
///
/// Threads: any.

#include <cstddef>
#include <string_view>

namespace messages {

/// Whether a JSON value is a string.
inline bool isJsonString(std::string_view json) {
    return json.size() >= 2 && json.front() == '"' && json.back() == '"';
}

/// How many bytes of `text`, the inside of a JSON string, the first piece has: `limit` at the most, unless a
/// single character takes more. It ends after a whole character, so that every piece is one in itself.
std::size_t firstPiece(std::string_view text, std::size_t limit);

}  // namespace messages
