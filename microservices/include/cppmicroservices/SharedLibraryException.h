#pragma once

#include <string>
#include <system_error>

#include "cppmicroservices/Bundle.h"

namespace cppmicroservices {

/// The library of a bundle could not be loaded.
class SharedLibraryException : public std::system_error {
public:
    SharedLibraryException(std::error_code code, const std::string& what, Bundle origin);
    ~SharedLibraryException() override;

    /// The bundle whose library it is.
    Bundle GetBundle() const { return origin_; }

private:
    Bundle origin_;
};

}  // namespace cppmicroservices
