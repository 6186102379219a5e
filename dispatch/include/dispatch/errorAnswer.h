#pragma once

#include <string>
#include <string_view>

namespace dispatch {

/// The body of an answer that tells of an error: `{"error": "..."}`.
std::string errorJson(std::string_view text);

}  // namespace dispatch
