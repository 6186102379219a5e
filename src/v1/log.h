#pragma once

#include "foundation/log/diagnostic_logger.h"

namespace connector::interpreter::v1 {

using foundation::log::Severity;

/// The logger of the interpreter services, "connector::interpreter".
const foundation::log::DiagnosticLogger& log();

/// The logger of the streaming evaluation, "connector::interpreter::async".
const foundation::log::DiagnosticLogger& asyncLog();

}  // namespace connector::interpreter::v1
