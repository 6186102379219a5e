#pragma once

#include <chrono>
#include <memory>

#include "connector/common/RequestOrigin.h"
#include "python/interpreterLock.h"

namespace standalone {

/// How long whoever waits for the client of a request looks at nothing else.
constexpr auto ownerWaitSlice = std::chrono::milliseconds(10);

/// Waits while the client is behind that the calling thread's output or events are for; `pace` may be null.
/// Between slices of the wait, and with the interpreter's lock, `goesOn` says whether to wait on. False when
/// it has ended the wait. It ends in any case: a client that takes nothing is soon not waited for any more.
///
/// Threads: those that hold the interpreter's lock, which is released for the wait, and no other lock.
template <class GoesOn>
bool waitForOwner(const std::shared_ptr<connector::common::ClientPace>& pace, const GoesOn& goesOn) {
    while (pace && pace->isBehind()) {
        withoutInterpreterLock([&pace] { pace->waitUntilCaughtUp(ownerWaitSlice); });
        if (!goesOn()) return false;
    }
    return true;
}

}  // namespace standalone
