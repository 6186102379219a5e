#pragma once

#include <string>
#include <typeinfo>

#include "foundation/core/diag.h"

namespace cmddistributor::detail {

/// The readable name of a type, for messages.  Threads: any.
inline std::string demangle(const std::type_info& type) {
    return foundation::core::diag::detail::demangle_typeid_name(type.name());
}

}  // namespace cmddistributor::detail
