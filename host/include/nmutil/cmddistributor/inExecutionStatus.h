#pragma once

#include <cstdint>

namespace nmutil::cmddistributor {

/// How the interpreter stands with the request that it ran last, or how a failed request failed.
enum inExecutionStatus : std::uint32_t {
    EXECUTION_OK = 0,           ///< ended without an error
    EXECUTION_ERROR = 1,        ///< ended by an error in the code
    EXECUTION_INTERRUPTED = 2,  ///< ended by an interrupt
    EXECUTION_CANCELLED = 3,    ///< taken back before it began
};

}  // namespace nmutil::cmddistributor
