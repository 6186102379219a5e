#pragma once

#include <memory>

#include "zvm/ZVM.h"

namespace connector::interpreter::v1 {

/// The one-time wake-up of the interpreter connection, which evaluations wait for.
///
/// Threads: any.  Locks: a process-wide mutex, held while waiting; the wake-up itself never takes it.
class StartupWakeUp {
public:
    /// Queues the wake-up on the interpreter; without one there is nothing to wait for.
    static void begin(const std::shared_ptr<zvm::ZVM>& zvm);

    /// Waits until the wake-up has ended, in whatever way.
    /// Blocks: until then.  Throws: std::runtime_error, "Future state isn't valid!", before `begin` and after
    /// `end`.
    static void await();

    /// Forgets it.
    static void end();
};

}  // namespace connector::interpreter::v1
