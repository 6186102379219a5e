#pragma once

#include <stdexcept>

namespace foundation::core::except {

/// The base of the exceptions that the host throws.
class IException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An exception whose text is meant for the user as it stands.
class IUserException : public IException {
public:
    using IException::IException;
};

}  // namespace foundation::core::except
