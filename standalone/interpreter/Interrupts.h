#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

namespace standalone {

/// Brings interrupts to the code that they are meant for, and to no other.
///
/// Each piece of code that runs has a number. An interrupt is a SIGINT queued to the interpreter thread with
/// the number of the code that runs when it is asked for. The handler ignores a number that is no longer the
/// current one, so that an interrupt that comes too late cannot hit the next request; a SIGINT from
/// elsewhere, such as a terminal, is taken by whatever runs. What reaches Python while nothing runs is
/// swallowed before the next code begins.
///
/// Threads: `request`, `setPending` and `isSignalThread` from any; the rest from the interpreter thread with
/// the interpreter's lock.
class Interrupts {
public:
    /// `wake` makes the interpreter thread look for signals where it waits at a prompt.
    explicit Interrupts(std::function<void()> wake) : wake_(std::move(wake)) {}

    /// Makes the calling thread the one that interrupts go to.
    void attach();
    /// Gives the signal back; later requests do nothing.
    void detach();

    /// Marks that code begins; returns what `end` is to be given. Code may begin inside other code.
    std::uint32_t begin();
    void end(std::uint32_t outer);

    /// Interrupts what runs now. False, with nothing done, when nothing runs.
    bool request();

    /// Holds interrupts back, or lets them through, and with them one that was held back. Returns the earlier
    /// setting.
    bool setEnabled(bool enabled);

    /// Marks an interrupt, as `request` does, or takes back one that is held back. Returns whether one was
    /// held back.
    bool setPending(bool pending);

    bool isSignalThread() const;

private:
    static void swallow();

    const std::function<void()> wake_;
    std::uint32_t last_ = 0;
    std::atomic<bool> isEnabled_{true};
    std::atomic<bool> isHeldBack_{false};
};

/// Blocks SIGINT and SIGRTMIN for the calling thread, or lets them through again.
void setInterpreterSignalsBlocked(bool blocked);

}  // namespace standalone
