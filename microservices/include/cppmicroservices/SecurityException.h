#pragma once

#include <stdexcept>
#include <string>

#include "cppmicroservices/Bundle.h"

namespace cppmicroservices {

/// A bundle was refused by a check of its security. Without such checks nothing here throws it.
class SecurityException : public std::runtime_error {
public:
    SecurityException(const std::string& what, Bundle origin);
    ~SecurityException() override;

    Bundle GetBundle() const { return origin_; }

private:
    Bundle origin_;
};

}  // namespace cppmicroservices
