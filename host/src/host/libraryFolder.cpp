#include "host/libraryFolder.h"

#include <system_error>

#include <dlfcn.h>

namespace host {

namespace {

// What has a name outside of this library may have its address in the program.
const char inThisLibrary = 0;

}  // namespace

std::filesystem::path libraryFolder() {
    Dl_info found;
    if (::dladdr(&inThisLibrary, &found) == 0) return {};
    std::error_code error;
    return std::filesystem::canonical(found.dli_fname, error).parent_path();
}

}  // namespace host
