#pragma once

#include <string>
#include <vector>

#include "SessionOptions.h"

namespace app {

/// How the console at a terminal is started: a program in Python that is a client of a server.
struct ConsoleClient {
    SessionOptions session;
    bool hasColours = true;
    std::string logLevel;  ///< of a server of its own; empty for the default

    /// Becomes that program, which becomes `numora console --plain` where its libraries are missing. Without
    /// a server it starts one before, which ends with it.
    /// Returns only when there is no such program, after having said so; then that server has ended, too.
    /// Throws: InputError for options that are wrong; std::system_error.
    void run() const;
};

}  // namespace app
