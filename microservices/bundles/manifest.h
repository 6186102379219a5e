#pragma once

#include <string>

#include "cppmicroservices/AnyMap.h"

namespace cppmicroservices::detail {

struct Manifest {
    std::string symbolicName;
    bool hasActivator = false;
    AnyMap headers{AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS};  ///< these two among them
};

/// Reads the manifest of the bundle library at `location`, a file beside it.
///
/// Blocks: for files.
/// Throws: std::runtime_error, when there is no such library or manifest, or it is not a JSON object with a
/// symbolic name.
Manifest readManifest(const std::string& location);

}  // namespace cppmicroservices::detail
