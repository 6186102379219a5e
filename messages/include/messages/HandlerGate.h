#pragma once

#include <cstdint>
#include <functional>

namespace messages {

/// Calls foreign code; what it throws is logged and goes no further.
void callAndLog(const std::function<void()>& call);

/// Stands before the handler of a subscription: lets calls in, any number at a time, until it is ended, and
/// knows which threads are inside.
///
///     open -- end --> ended
///
/// Threads: any.  Locks: one of all gates, a leaf; calls run without it.
class HandlerGate {
public:
    /// Does callAndLog, unless ended.
    void run(const std::function<void()>& call);

    /// Lets no further call in.
    /// Blocks: until the calls on other threads have returned. Not for one that cannot: one whose thread
    /// waits, in an `end` of its own, for a call that this thread is inside.
    void end();

    /// Whether this thread is inside a call of any gate.
    static bool isInHandler();

private:
    bool isEnded_ = false;  // under the mutex of all gates
};

}  // namespace messages
