#pragma once

#include <stdexcept>

namespace connector {

/// The provider for a message is there, but stopped.
class ServiceStopped : public std::runtime_error {
public:
    ServiceStopped() : std::runtime_error("Service exists but is not running.") {}
};

}  // namespace connector
