#pragma once

#include "ServeSettings.h"

namespace app {

/// Logs what of the settings works, but hardly as it is meant: secrets that stand in files which others can
/// read.
void warnOfSettings(const ServeSettings& settings);

}  // namespace app
