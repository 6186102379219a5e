// The destructors that anchor the exceptions' types in this library, so that every bundle catches the same.

#include <utility>

#include "cppmicroservices/Any.h"
#include "cppmicroservices/IllegalStateException.h"
#include "cppmicroservices/SecurityException.h"
#include "cppmicroservices/ServiceException.h"
#include "cppmicroservices/SharedLibraryException.h"

namespace cppmicroservices {

BadAnyCastException::~BadAnyCastException() = default;
IllegalStateException::~IllegalStateException() = default;
ServiceException::~ServiceException() = default;

SecurityException::SecurityException(const std::string& what, Bundle origin)
    : std::runtime_error(what), origin_(std::move(origin)) {}
SecurityException::~SecurityException() = default;

SharedLibraryException::SharedLibraryException(std::error_code code, const std::string& what, Bundle origin)
    : std::system_error(code, what), origin_(std::move(origin)) {}
SharedLibraryException::~SharedLibraryException() = default;

}  // namespace cppmicroservices
