#pragma once

#include "gateway/GatewayOptions.h"

namespace gateway {

/// Refuses names and paths by which no request could ever be served, and brings the base path into its one
/// form: without a slash at its end. Throws: std::invalid_argument, which names the option and says what must
/// be.
void checkOptions(GatewayOptions& options);

}  // namespace gateway
