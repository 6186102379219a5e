#pragma once

#include "output/PlacedEvents.h"
#include "python/ShownPrompt.h"

namespace standalone {

/// What the interpreter does while this prompt is shown: it is "busy", "idle", or waits for "input".
const char* stateAt(nmutil::prompt::InputRequester prompt);

/// Tells clients which prompt is shown now, and what is asked there: the events `status` and `input`.
/// Threads: as PlacedEvents.  Throws: nothing; a failure is logged.
void raisePromptEvents(PlacedEvents& events, const ShownPrompt& prompt);

}  // namespace standalone
