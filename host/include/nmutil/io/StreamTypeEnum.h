#pragma once

#include <cstdint>

namespace nmutil::io {

/// The stream that a piece of text was printed on. 0 is standard output, any other value standard error.
enum StreamTypeEnum : std::uint32_t {
    STANDARD_OUTPUT = 0,
    STANDARD_ERROR = 1,
};

}  // namespace nmutil::io
