#pragma once

#include <cstddef>
#include <string_view>

namespace standalone {

/// Whether a semicolon comes after the position in Python code in UTF-8, with nothing but blanks in between.
/// Lines count from 1, columns in bytes from 0, as in syntax trees.
inline bool isSemicolonAfter(std::string_view code, long line, long column) {
    while (--line > 0) {
        const std::size_t end = code.find_first_of("\n\r");
        if (end == std::string_view::npos) return false;
        code.remove_prefix(end + (code.substr(end).starts_with("\r\n") ? 2 : 1));
    }
    if (column < 0 || static_cast<std::size_t>(column) > code.size()) return false;
    // A line may go on after a backslash.
    const std::size_t next = code.find_first_not_of(" \t\f\\\r\n", static_cast<std::size_t>(column));
    return next != std::string_view::npos && code[next] == ';';
}

}  // namespace standalone
