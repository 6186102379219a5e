#pragma once

#include <functional>

namespace standalone {

/// The interpreter's lock is CPython's, the GIL. It comes before every mutex of ours (docs/locks.md).

/// Runs `action` with the lock held.  Threads: any, while CPython runs.  Blocks: until it is free.
void withInterpreterLock(const std::function<void()>& action);

/// Runs `action`, which waits, with the lock released.  Threads: one that holds it. After CPython has ended,
/// threads that Python code started do not return.
void withoutInterpreterLock(const std::function<void()>& action);

/// The same where the calling thread holds the lock and may release it; elsewhere it only runs `action`.
/// Threads: any.
void releasingInterpreterLock(const std::function<void()>& action);

/// The lock as a state to be handed back, for host::Environment.
int acquireInterpreterLock();
void releaseInterpreterLock(int state);

/// While one exists, its thread does not release the lock in a wait: it delivers output of native code, whose
/// order the lock keeps.
class KeepsInterpreterLock {
public:
    KeepsInterpreterLock();
    ~KeepsInterpreterLock();
    KeepsInterpreterLock(const KeepsInterpreterLock&) = delete;
    KeepsInterpreterLock& operator=(const KeepsInterpreterLock&) = delete;

    /// Whether the calling thread has one.
    static bool isHere();
};

}  // namespace standalone
