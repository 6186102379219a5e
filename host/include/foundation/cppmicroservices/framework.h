#pragma once

#include <string>
#include <vector>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/Framework.h"

namespace foundation::cppmicroservices {

/// The framework that all code of the process shares. It is started at the first use and runs as long as the
/// process.
/// Threads: any.  Throws: std::logic_error, when no environment is installed or it has no framework.
::cppmicroservices::Framework getFramework();

/// Installs and starts the bundles at `path` in that framework and returns those that are active now. The
/// environment says how `path`, which is written with backslashes, is understood.
///
/// A bundle that is missing, has no activator or fails to start is logged and left out; the rest of the
/// system runs without it. Threads: any.  Blocks: while libraries load and activators run, on this thread.
/// Throws: as getFramework.
std::vector<::cppmicroservices::Bundle> installAndStart(const std::string& path);

}  // namespace foundation::cppmicroservices
