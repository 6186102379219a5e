#pragma once

#include <filesystem>

#include "Workplace.h"

namespace app {

/// A notebook kernel with an interpreter in this process, for the clients that `connectionFile` tells of.
/// Blocks: until a client or a signal ends it.
/// Throws: InputError, for a file or addresses that cannot be used; std::runtime_error, when the interpreter
/// does not start.
int runKernelProcess(const std::filesystem::path& connectionFile, const Workplace& workplace);

}  // namespace app
