#include <cstdlib>
#include <memory>

#include <cxxabi.h>

#include "cppmicroservices/ServiceInterface.h"

namespace cppmicroservices {

std::string detail::readableName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> readable(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    return status == 0 ? readable.get() : type.name();
}

}  // namespace cppmicroservices
