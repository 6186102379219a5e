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
