#pragma once

namespace standalone {

/// The signals of the interpreter thread: SIGRTMIN, which makes it check what is asked of the code that it
/// runs, and SIGINT, which raises KeyboardInterrupt there.
///
/// What is asked, and of which code, only the queue knows; the Python-level handler of SIGRTMIN asks it. The
/// signal breaks into sleeps and other system calls, too. A SIGINT from another process, such as a
/// terminal's, counts as an interrupt of whatever runs.
///
/// Threads: the interpreter thread with the interpreter's lock, but for what says otherwise.
struct Interrupts {
    /// Makes the calling thread the one that signals go to.
    static void attach();
    /// Gives the signals back; nothing reaches the thread any more.
    static void detach();

    /// Marks that code begins, inside other code or by itself. True when a SIGINT was on its way to the code
    /// outside, which `deliver` is to bring it once this code has ended.
    static bool begin(bool isInside);
    /// Marks that it has ended. A SIGINT that has not reached it is dropped.
    static void end();

    /// Whether code has changed what the signals do, so that they no longer reach it.
    static bool areReplaced();
    /// Makes them work again, but for what Python has to set right itself.
    static void install();

    /// Makes the thread check between two steps of its code, within milliseconds, and again every 20 of them.
    /// Threads: any; one at a time, and not while `stopSignals` runs.
    static void startSignals();
    /// Ends the repetition.  Threads: as `startSignals`.
    static void stopSignals();

    /// Whether a SIGINT from elsewhere has come since this was asked last.
    static bool takeOutside();

    /// Runs Python's handler of SIGINT, which raises KeyboardInterrupt unless the code has set another, and
    /// those of the other signals that have come. False when one has raised an exception, which is set then.
    static bool deliver();
    /// Runs the handlers of the signals that have come. False when one has raised an exception.
    static bool check();

    static bool isSignalThread();
};

}  // namespace standalone
