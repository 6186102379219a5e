#pragma once

#include <stdexcept>

namespace cppmicroservices {

/// A bundle's context was used while the bundle is not active.
class IllegalStateException final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~IllegalStateException() override;
};

}  // namespace cppmicroservices
