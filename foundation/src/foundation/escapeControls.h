#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace foundation::log {

/// `utf8` as one line: control characters and separators of lines become escapes such as `\n` and `\x1b`,
/// line breaks at its end are left out, and what is longer than `longest` bytes is cut, with a note that says
/// so.
std::string escapeControls(std::string_view utf8, std::size_t longest);

}  // namespace foundation::log
