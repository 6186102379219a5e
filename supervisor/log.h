#pragma once

#include "foundation/log/diagnostic_logger.h"

namespace supervisor {

/// The logger of this folder, "supervisor". What users printed or ran belongs in no record.
const foundation::log::DiagnosticLogger& log();

}  // namespace supervisor
