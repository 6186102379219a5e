#pragma once

#include <compare>
#include <cstdint>

namespace foundation::msg_svc::exchange {

/// The identity of one queued request, unique in the process. 0 is no request.
struct IDType {
    std::uint64_t value = 0;
    friend auto operator<=>(const IDType&, const IDType&) = default;
};

}  // namespace foundation::msg_svc::exchange

namespace nmutil::contextmgr {

/// Names one interpreter runtime of the process. The default value names the local one.
struct NcrID {
    std::uint64_t value = 0;
    friend bool operator==(const NcrID&, const NcrID&) = default;
};

}  // namespace nmutil::contextmgr

namespace zvm {

/// Names one interpreter virtual machine of the process.
using ZvmID = std::uint64_t;

}  // namespace zvm
