#pragma once

#include "foundation/log/diagnostic_logger.h"

namespace connector::interpreter::v1 {

using foundation::log::Severity;

/// The logger of the interpreter services, "connector::interpreter".
const foundation::log::DiagnosticLogger& log();

}  // namespace connector::interpreter::v1
