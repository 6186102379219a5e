#pragma once

#include <string>

/// Keys of properties and of manifest headers.
namespace cppmicroservices::Constants {

extern const std::string SYSTEM_BUNDLE_LOCATION;
extern const std::string SYSTEM_BUNDLE_SYMBOLICNAME;

// Headers of a manifest.
extern const std::string BUNDLE_SYMBOLICNAME;  ///< text; must be there
extern const std::string BUNDLE_ACTIVATOR;     ///< bool; without it the library is never loaded
extern const std::string BUNDLE_VERSION;       ///< text
extern const std::string BUNDLE_DESCRIPTION;
extern const std::string BUNDLE_VENDOR;

// Properties of a service.
extern const std::string OBJECTCLASS;      ///< std::vector<std::string>; set by the framework
extern const std::string SERVICE_ID;       ///< long; set by the framework
extern const std::string SERVICE_RANKING;  ///< int
extern const std::string SERVICE_SCOPE;    ///< text; set by the framework
extern const std::string SCOPE_SINGLETON;

// Configuration of a framework.
extern const std::string LIBRARY_LOAD_OPTIONS;  ///< int: the flags for dlopen

}  // namespace cppmicroservices::Constants
