#pragma once

#include "foundation/log/diagnostic_logger.h"

namespace gateway {

/// The logger of the gateway, "gateway". Tokens and ids of sessions belong in no record.
const foundation::log::DiagnosticLogger& log();

}  // namespace gateway
