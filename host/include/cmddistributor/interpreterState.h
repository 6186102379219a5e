#pragma once

#include <cstdint>

#include "nmutil/cmddistributor/inExecutionStatus.h"

/// How the evaluation that ended last, or is ending, went.  Threads: the interpreter thread.
nmutil::cmddistributor::inExecutionStatus mnGetExecutionStatus();

/// 0 when the code was complete, 1 when it ended inside an open block.  Threads: the interpreter thread.
std::int32_t mnGetCodeBlockStatus();
