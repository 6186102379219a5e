#pragma once

#include <filesystem>

#include "ServerAddress.h"

namespace app {

/// A notebook kernel that stands for that of an interpreter of a server, for the clients that
/// `connectionFile` tells of.
///
/// With `isNew` the interpreter is made for it, and removed at its end; else it is the one of the address,
/// and goes on.
///
/// Returns: the exit status.  Blocks: until a client, a signal or the end of its parent ends it, or the
/// server was away for a minute. Throws: ConnectionLost, ServerRefusal; InputError, for a file or addresses
/// that cannot be used.
int runKernelRelay(const std::filesystem::path& connectionFile, const ServerAddress& server, bool isNew);

}  // namespace app
