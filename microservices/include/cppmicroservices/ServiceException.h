#pragma once

#include <stdexcept>

namespace cppmicroservices {

/// A failure of a factory of services. Without such factories nothing here throws it.
class ServiceException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~ServiceException() override;
};

}  // namespace cppmicroservices
