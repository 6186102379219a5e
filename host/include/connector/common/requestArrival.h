#pragma once

#include <cstdint>

#include "connector/common/ContextState.h"

namespace connector::common {

/// The context value with the moment at which a request arrived, in nanoseconds of the steady clock
/// (std::uint64_t). It tells what came first where "requestStartTime" cannot: within one millisecond, and
/// after the system's clock has been set.
inline constexpr const char* requestArrival = "requestArrival";

/// Now, as `requestArrival` counts.  Threads: any.
std::uint64_t arrivalNow();

/// Marks that the request with this context arrives now: sets "requestStartTime", in milliseconds of the
/// system clock, and `requestArrival`.  Threads: any.  Locks: that of the context.
void stampArrival(ContextState& context);

}  // namespace connector::common
