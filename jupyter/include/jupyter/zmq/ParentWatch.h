#pragma once

#include <functional>
#include <optional>

#include <sys/types.h>

#include "jupyter/Executor.h"

namespace jupyter {

/// The parent of the process, where the process is to end with it, as JPY_PARENT_PID says. To be asked early:
/// what has ended before is not noticed. The value of the variable is not looked at, since it may be of the
/// parent of a wrapper, or of another namespace of processes.
std::optional<pid_t> parentToWatch();

/// Calls `gone` on the executor, once, when the parent of the process is another one than `parent`, which it
/// becomes when that ends: within a second. Does nothing without one.
void watchParent(Executor& executor, std::optional<pid_t> parent, std::function<void()> gone);

}  // namespace jupyter
