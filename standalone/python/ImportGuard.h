#pragma once

#include <chrono>

#include "python/pythonText.h"

namespace standalone {

/// Keeps requests that run between two steps of other code out of its imports: they would find modules that
/// are only half there, and could wait for ever for a lock of the import system that the code around them
/// holds. A module whose import takes long, as one that computes does, lets them in after a while, at those
/// of its steps that are not the import system's own. The modules of which calls consist never do.
///
/// Threads: one at a time, with the interpreter's lock.
class ImportGuard {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr auto longImport = std::chrono::milliseconds(500);

    /// Whether a request may run inside the code that was interrupted in `frame`, or else the question is to
    /// be asked again within milliseconds. `frame` may be None.
    bool mayRunIn(PyObject* frame);

private:
    Clock::time_point since_;      // when the import was met first that is under way
    Clock::time_point lastAsked_;  // inside it
};

}  // namespace standalone
