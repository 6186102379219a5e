#pragma once

#include "nmutil/contextmgr/NcrID.h"

namespace iqm {

/// The interpreter queue manager.
class Iqm {
public:
    virtual ~Iqm() = default;

    /// Whether the debugger waits for input in an editor, and wants it shown as a prompt.
    /// Threads: the interpreter thread.
    virtual bool isInEditorDebugInputWanted() const = 0;

    /// The queue manager of the local interpreter, or of the one that `ncr` names.
    /// Threads: any.  Throws: std::runtime_error when no environment is installed.
    static Iqm& instance();
    static Iqm& getInstance(nmutil::contextmgr::NcrID ncr);
};

}  // namespace iqm
