#pragma once

#include <cstdint>
#include <string>

namespace gateway::ports {

/// Why a request that names a life of the interpreter is not run in another one.
inline std::string wrongLife(std::uint64_t wanted, std::uint64_t life) {
    return "The request is for life " + std::to_string(wanted) + " of the interpreter, which is in life " +
           std::to_string(life) + ".";
}

}  // namespace gateway::ports
