#pragma once

#include <string>
#include <vector>

namespace capabilities {

/// What the client of a request can show or do, by name.
using CapabilityList = std::vector<std::string>;

}  // namespace capabilities
