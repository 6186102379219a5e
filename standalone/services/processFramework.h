#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/Framework.h"

namespace standalone {

/// The framework of this process, started at the first call and never stopped: when the process ends, code
/// that other threads still run may use its services, so its bundles stay.
/// Threads: any.
cppmicroservices::Framework processFramework();

/// Where the library of the bundle that `path` ends with is: lib<name>.so in the folder that the environment
/// variable NUMORA_BUNDLES names, else in numora/bundles beside the shared library of the host interface.
/// Absolute; of the second folder when it is in neither.
/// `path` is divided at "\" and "/".
std::filesystem::path bundleLibrary(const std::string& path);

/// Installs and starts that bundle in the framework of this process, and returns what is active then.
/// A failure is logged. A library with several bundles starts those that it can.
/// Threads: any.  Blocks: while it loads and its activator runs.  Throws: nothing but std::bad_alloc.
std::vector<cppmicroservices::Bundle> installAndStartBundles(const std::string& path);

}  // namespace standalone
