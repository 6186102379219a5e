#pragma once

#include <cstdint>
#include <vector>

#include "zvm/identities.h"

namespace standalone {

/// The pieces of code that run, one inside the other, and the interrupts that are meant for them.
///
/// An interrupt is a mark on a piece, until the piece takes it or ends. Only the innermost takes its own, and
/// only while it is open; the marks of the others wait for their turn.
///
/// Threads: one at a time. It has no lock: the queue's guards it.
class CodeStack {
public:
    using IDType = foundation::msg_svc::exchange::IDType;

    bool isEmpty() const { return codes_.empty(); }

    void begin(IDType request, bool isInterrupted) {
        codes_.push_back(Code{.request = request, .number = ++lastNumber_, .isInterrupted = isInterrupted});
    }
    /// The innermost can take its interrupts from now on, or takes none any more.
    void setOpen(bool isOpen) { codes_.back().isOpen = isOpen; }
    /// Ends the innermost with whatever it has not taken.
    void end() { codes_.pop_back(); }

    /// Marks the pieces that run for a request. False when there are none.
    bool interrupt(IDType request);
    void interruptAll();
    bool isInterrupted() const;
    /// Takes all marks away. True when there were some.
    bool clearInterrupts();

    /// Lets interrupts be taken, or makes them wait. Returns the previous setting.
    bool setInterruptEnabled(bool isEnabled);
    bool mayTakeInterrupt() const;
    /// Takes the interrupt of the innermost. False when there is none, or it may not be taken now.
    bool takeInterrupt();
    /// Puts back the one that the innermost took last. False when it has taken none.
    bool returnInterrupt();

    /// The innermost waits at a prompt, or no longer does. Taking an interrupt ends its wait, too.
    void setAtPrompt(bool isAtPrompt);
    /// The numbers of those that wait at a prompt and can take an interrupt that they have.
    std::vector<std::uint64_t> interruptedAtPrompt() const;
    /// Whether the piece of that number has ended, or has taken its interrupt and waits at a prompt again.
    bool hasDealtWithInterrupt(std::uint64_t number) const;

private:
    struct Code {
        IDType request;
        std::uint64_t number;
        bool isInterrupted = false;
        bool wasInterrupted = false;
        bool isOpen = false;
        bool isAtPrompt = false;
    };

    std::vector<Code> codes_;  // innermost last
    std::uint64_t lastNumber_ = 0;
    bool isInterruptEnabled_ = true;
};

}  // namespace standalone
