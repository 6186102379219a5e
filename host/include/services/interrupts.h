#pragma once

/// Interrupts of the interpreter, by name as in its utility library.

/// Whether the caller runs on the thread that signals act on.  Threads: any.
bool utIsSignalThread();

/// Lets interrupts reach running code, or holds them back; returns the previous setting.
/// Threads: the interpreter thread.
bool utSetInterruptEnabled(bool enabled);

class utInterruptState {
public:
    /// Marks, or unmarks, that what runs now is to be interrupted. Returns the previous mark.  Threads: any.
    bool SetInterruptPending(bool pending);

    /// The process's one state.
    static utInterruptState& instance();
};
