#pragma once

#include <cstdint>

namespace standalone {

/// Brings interrupts to the code that they are meant for, and to no other.
///
/// Each piece of code that runs has a number. An interrupt is a SIGINT queued to the interpreter thread with
/// the number of the code that runs when it is asked for. The handler ignores a number that is no longer the
/// current one, so that an interrupt that comes too late cannot hit the next request; a SIGINT from
/// elsewhere, such as a terminal, is taken by whatever runs. What reaches Python while nothing runs is
/// swallowed before the next code begins.
///
/// Which code an interrupt is meant for is the queue's knowledge; here it is brought there.
///
/// Threads: the interpreter thread with the interpreter's lock, but for what says otherwise.
struct Interrupts {
    /// Makes the calling thread the one that interrupts go to.
    static void attach();
    /// Gives the signal back; later interrupts do nothing.
    static void detach();

    /// Marks that the code with the number `code` begins, inside the code `outer` or, when that is 0, by
    /// itself. True when an interrupt was on its way to the code outside, which `trip` is to bring it once
    /// this code has ended.
    static bool begin(std::uint32_t code, std::uint32_t outer);
    /// Marks that it has ended. What was meant for it and has not reached it is dropped.
    static void end(std::uint32_t outer);

    /// Whether code has changed what SIGINT does, so that interrupts no longer reach it.
    static bool isDisturbed();
    /// Makes SIGINT interrupt again.
    static void install();

    /// Interrupts the code with this number. Does nothing where SIGINT would end the process.  Threads: any.
    static void send(std::uint32_t code);
    /// Interrupts the code that runs now.
    static void trip();

    /// Makes the running code let requests run between two of its steps.  Threads: any.
    static void sendRequests();

    /// A signal that comes just before code enters a system call does not break into that call. So each is
    /// followed by SIGRTMIN, which does no harm, every few milliseconds, until this says that the interpreter
    /// looks at its signals.
    static void calm();

    static bool isSignalThread();
};

/// Blocks SIGINT and SIGRTMIN for the calling thread, or lets them through again.
void setInterpreterSignalsBlocked(bool blocked);

}  // namespace standalone
