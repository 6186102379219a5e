#pragma once

/// Names of channels and patterns of names: docs/messages.md.
///
/// A name is a "/" and segments with a "/" between them; a segment is one or more of the letters and digits
/// of ASCII and `-_!~()$@.`, so a name stands in a JSON string as it is. In a pattern a segment may also be
/// "*", which stands for one segment, and the last one "**", which stands for one or more. Every name is a
/// pattern, which matches itself.
///
/// Threads: any.

#include <string>
#include <string_view>

namespace messages {

bool isChannelName(std::string_view text);
bool isChannelPattern(std::string_view text);

/// Returns `pattern`.  Throws: std::invalid_argument, for what is none.
const std::string& requirePattern(const std::string& pattern);
/// Throws: std::invalid_argument, for a channel that is no name, and for empty data.
void requireMessage(std::string_view channel, std::string_view data);

/// Whether there is a name that both patterns match. When one of them is a name: whether the other one
/// matches it. Both must be patterns.
bool canMatch(std::string_view pattern, std::string_view other);

}  // namespace messages
