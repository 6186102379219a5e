#pragma once

#include <string>
#include <vector>

#include "cppmicroservices/AnyMap.h"

namespace cppmicroservices::detail {

/// The headers of each bundle in the library at `location`: those of `given`, which has a map of headers for
/// each symbolic name, or when it is empty those of the manifest beside the library.
///
/// Throws: std::runtime_error, when there is no such library or manifest, or it is no JSON object.
/// Blocks: for files.
std::vector<AnyMap> readManifests(const std::string& location, const AnyMap& given);

}  // namespace cppmicroservices::detail
