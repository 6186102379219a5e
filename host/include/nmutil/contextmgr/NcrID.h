#pragma once

#include <cstdint>

namespace nmutil::contextmgr {

/// Names one interpreter runtime of the process. The default value names the local one.
struct NcrID {
    std::uint64_t value = 0;
    friend bool operator==(const NcrID&, const NcrID&) = default;
};

}  // namespace nmutil::contextmgr
