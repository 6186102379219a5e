#pragma once

/// Puts into words what a server says of an interpreter.  Threads: any.

#include <string>

#include <Poco/JSON/Object.h>

namespace app {

/// The member as text; empty without one.
std::string textIn(const Poco::JSON::Object& info, const char* name);
/// What it does, as "ready, busy".
std::string stateOf(const Poco::JSON::Object& info);
/// As "24 MiB".
std::string memoryOf(const Poco::JSON::Object& info);
/// When and why its last life has ended; empty when it has not died.
std::string lastDeathOf(const Poco::JSON::Object& info);

}  // namespace app
