#pragma once

#include <string>

/// Keys of manifest headers and of properties.
namespace cppmicroservices::Constants {

inline const std::string BUNDLE_SYMBOLICNAME = "bundle.symbolic_name";  ///< string; required
inline const std::string BUNDLE_ACTIVATOR = "bundle.activator";  ///< bool; if not true, nothing is loaded

inline const std::string SERVICE_ID = "service.id";            ///< long, rising; set by the framework
inline const std::string SERVICE_RANKING = "service.ranking";  ///< int

}  // namespace cppmicroservices::Constants
