#pragma once

#include <cstdint>

namespace cmddistributor {

/// The stream of requests that a request belongs to.
enum class IqmStreamID : std::int32_t {
    User = 0,      ///< code that a user asked for
    Internal = 1,  ///< work of the system itself
};

}  // namespace cmddistributor
