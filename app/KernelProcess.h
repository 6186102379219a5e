#pragma once

#include <filesystem>
#include <memory>

#include "Workplace.h"

namespace jupyter {
class SocketThread;
}

namespace app {

/// A notebook kernel with an interpreter in this process, for the clients that `connectionFile` tells of. The
/// cells that run are kept in the file `history`, if it is not empty.
/// Blocks: until a client or a signal ends it.
/// Throws: InputError, for a file or addresses that cannot be used; std::runtime_error, when the interpreter
/// does not start.
int runKernelProcess(const std::filesystem::path& connectionFile, const Workplace& workplace,
                     const std::filesystem::path& history);

/// The sockets that a connection file describes, with the ports that were chosen written into it.
/// Throws: InputError, for a file or addresses that cannot be used.
std::unique_ptr<jupyter::SocketThread> openSockets(const std::filesystem::path& connectionFile);

}  // namespace app
