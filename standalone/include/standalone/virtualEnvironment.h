#pragma once

#include <string>

namespace standalone {

/// The program of the virtual environment in `folder`, by which CPython finds its packages.
/// Throws: std::runtime_error, when it is none, or one for another version of Python than the embedded one.
std::string programOf(const std::string& folder);

}  // namespace standalone
