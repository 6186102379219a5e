#pragma once

#include <cstdint>

#include "nmutil/cmddistributor/inExecutionStatus.h"

/// How the evaluation that runs, or else the last one, went so far.  Threads: the interpreter thread.
nmutil::cmddistributor::inExecutionStatus mnGetExecutionStatus();

/// 0 when the code was complete, 1 when it ended inside an open block.  Threads: the interpreter thread.
std::int32_t mnGetCodeBlockStatus();
