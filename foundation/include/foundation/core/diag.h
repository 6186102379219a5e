#pragma once

#include <string>
#include <typeinfo>

namespace foundation::core::diag {

/// Ends the process on a broken invariant, after writing where and what to standard error.
[[noreturn]] void terminate(const char* file, int line, const char* function, const std::string& text);

namespace detail {

/// The readable form of a name that std::type_info gives, or the name itself where there is none.
std::string demangle_typeid_name(const char* name);

}  // namespace detail

}  // namespace foundation::core::diag
