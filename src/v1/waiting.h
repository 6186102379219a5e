#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

#include "connector/Future.h"

namespace connector::interpreter::v1 {

enum class WaitEnd {
    Resolved,
    TimedOut,
    GivenUp,  ///< `goesOn` said so
};

/// Waits for a result in slices, and asks `goesOn` after each that ended without one. The slices bound how
/// long a vanished interpreter keeps a request; a result ends the wait at once. A `limit` of zero is none.
template <class T, class GoesOn>
WaitEnd waitInSlices(const Future<T>& future, std::chrono::milliseconds slice,
                     std::chrono::milliseconds limit, GoesOn goesOn) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const bool isLimited = limit.count() > 0;
    for (;;) {
        Clock::duration next = slice;
        if (isLimited) next = std::min(next, start + limit - Clock::now());
        if (future.waitFor(next)) return WaitEnd::Resolved;
        if (isLimited && Clock::now() - start >= limit) return WaitEnd::TimedOut;
        if (!goesOn()) return future.isReady() ? WaitEnd::Resolved : WaitEnd::GivenUp;
        std::this_thread::yield();
    }
}

}  // namespace connector::interpreter::v1
