#pragma once

/// Interrupts of the interpreter, by name as in its utility library.

/// Whether the caller runs on the thread that signals act on.  Threads: any.
bool utIsSignalThread();

/// Lets interrupts reach running code, or holds them back; returns the previous setting.
/// Threads: the interpreter thread.
bool utSetInterruptEnabled(bool enabled);

/// The interrupt state of an interpreter, which its queue manager gives out.
class utInterruptState {
public:
    /// Marks that what runs now is to be interrupted, or takes back a mark that has not been acted on.
    /// Returns whether there was one.  Threads: any.
    static bool SetInterruptPending(utInterruptState& state, bool pending);
};
