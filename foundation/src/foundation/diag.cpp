#include "foundation/core/diag.h"

#include <cstdlib>
#include <iostream>
#include <memory>

#include <cxxabi.h>

namespace foundation::core::diag {

void terminate(const char* file, int line, const char* function, const std::string& text) {
    std::cerr << file << ":" << line << ": " << function << ": " << text << std::endl;
    std::abort();
}

std::string detail::demangle_typeid_name(const char* name) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> readable(
        abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
    return status == 0 ? readable.get() : name;
}

}  // namespace foundation::core::diag
