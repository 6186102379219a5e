#pragma once

#include <functional>

#include "jupyter/Executor.h"

namespace jupyter {

/// Calls `gone` on the executor, once, when the parent of the process has become another one, which it does
/// when the first ends: within a second.
void watchParent(Executor& executor, std::function<void()> gone);

}  // namespace jupyter
