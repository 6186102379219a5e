#pragma once

#include <memory>
#include <string>
#include <typeinfo>
#include <unordered_map>

#include "cppmicroservices/Any.h"

namespace cppmicroservices {

/// The properties of a service. Keys are looked up in any case.
using ServiceProperties = std::unordered_map<std::string, Any>;

/// One object under each name by which it can be looked up: a pointer to that interface of it.
using InterfaceMap = std::unordered_map<std::string, std::shared_ptr<void>>;
using InterfaceMapConstPtr = std::shared_ptr<const InterfaceMap>;

namespace detail {

std::string readableName(const std::type_info& type);

/// The name of the interface `T`.
template <class T>
std::string interfaceId() {
    return readableName(typeid(T));
}
template <>
inline std::string interfaceId<void>() {
    return {};
}

}  // namespace detail

}  // namespace cppmicroservices

/// Gives the interface `type` another name than that of its type. At global scope, where the type is defined.
#define CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(type, id)           \
    template <>                                                        \
    inline std::string cppmicroservices::detail::interfaceId<type>() { \
        return id;                                                     \
    }
