#pragma once

#include "cmddistributor/RunOptions.h"
#include "nmutil/prompt/InputRequester.h"

namespace standalone {

/// Whether a request that is to be dequeued `when` may run at `prompt`, where code that runs shows NO_PROMPT.
bool mayRun(cmddistributor::WhenToDequeue when, nmutil::prompt::InputRequester prompt);

}  // namespace standalone
