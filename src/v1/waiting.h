#pragma once

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include "connector/Future.h"
#include "v1/log.h"

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

/// For a request that was given up: `request` is named in the log when its result comes after all.
template <class T>
void logLateEnd(Future<T>& future, std::string request) {
    if (future.isReady()) return;  // it was taken out of the queue
    future.then([request = std::move(request)](const Future<T>&) {
        log().warning(request + " ended after it had been given up; its result is dropped");
    });
}

}  // namespace connector::interpreter::v1
