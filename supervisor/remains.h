#pragma once

#include <string>

#include "supervisor/DeathRecord.h"
#include "supervisor/Worker.h"

namespace supervisor {

/// Reads what a dead process left in its pipes, black box and trace.
///
/// Threads: any, once the process and its group are dead.  Blocks: never, though others may still have the
/// pipes.
void readRemains(const Process& process, DeathRecord& record);

}  // namespace supervisor
