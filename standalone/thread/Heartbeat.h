#pragma once

#include <atomic>
#include <chrono>

namespace standalone {

/// Tells whether the interpreter thread still comes to where it looks at its signals, without disturbing it:
/// a signal would break into system calls of the user's code. It comes there when it runs Python code, and
/// whoever has released the interpreter's lock can be reached by a signal.
///
/// Threads: `attach` on the interpreter thread with the interpreter's lock; `deafFor` any, one at a time.
class Heartbeat {
public:
    void attach();

    /// Since when it has neither run Python code nor released the interpreter's lock. Seen are only the
    /// moments of the calls. Call it only while CPython lives.  Blocks: no.
    std::chrono::milliseconds deafFor();

private:
    using Clock = std::chrono::steady_clock;

    static int beat(void* heartbeat);

    void* state_ = nullptr;  // CPython's of the thread; fixed after `attach`
    std::atomic<bool> hasBeaten_{true};
    Clock::time_point asked_{};  // of `deafFor`
};

}  // namespace standalone
