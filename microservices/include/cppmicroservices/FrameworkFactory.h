#pragma once

#include <iosfwd>
#include <string>
#include <unordered_map>

#include "cppmicroservices/Any.h"

namespace cppmicroservices {

class Framework;

using FrameworkConfiguration = std::unordered_map<std::string, Any>;

/// Makes frameworks, each independent of the others.
///
/// Threads: any.
class FrameworkFactory {
public:
    Framework NewFramework();
    /// `logger` gets a line for each activator that fails while the framework stops. It must outlive the
    /// framework, and others must not use it meanwhile.
    Framework NewFramework(const FrameworkConfiguration& configuration, std::ostream* logger = nullptr);
};

}  // namespace cppmicroservices
