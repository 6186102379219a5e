#pragma once

#include "services/interrupts.h"
#include "zvm/identities.h"

namespace iqm {

/// The interpreter queue manager.
class Iqm {
public:
    virtual ~Iqm() = default;

    /// Whether the debugger waits for input in an editor, and wants it shown as a prompt.
    /// Threads: the interpreter thread.
    virtual bool isInEditorDebugInputWanted() const = 0;

    /// The state through which what this interpreter runs is interrupted.  Threads: any.
    utInterruptState& interruptState() { return interruptState_; }

    /// The queue manager of the local interpreter, or of the one that `ncr` names.
    /// Threads: any.  Throws: std::logic_error when no environment is installed; std::runtime_error when
    /// there is no interpreter of that name.
    static Iqm& instance();
    static Iqm& getInstance(nmutil::contextmgr::NcrID ncr);

private:
    utInterruptState interruptState_;
};

}  // namespace iqm
