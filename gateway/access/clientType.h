#pragma once

#include <algorithm>
#include <string_view>

namespace gateway::access {

/// Whether a client may call its type so: 128 printable ASCII characters at the most. It becomes a label of
/// the metrics.  Threads: any.
inline bool isClientType(std::string_view text) {
    return text.size() <= 128 && std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

}  // namespace gateway::access
