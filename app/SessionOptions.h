#pragma once

#include <memory>
#include <string>

#include "ServerAddress.h"
#include "Session.h"
#include "Workplace.h"
#include "terminal.h"

namespace CLI {
class App;
}

namespace app {

/// Which interpreter a command works with: one of its own, or that of a server.
struct SessionOptions {
    std::string url;          ///< empty: one of its own
    std::string token;        ///< empty: that in the URL, or in the environment
    std::string interpreter;  ///< empty: that in the URL
    Workplace workplace;      ///< of one of its own

    /// Adds the flags to the command.
    void addTo(CLI::App& command);
    /// Those alone that are about an interpreter of a server.
    void addInterpreterTo(CLI::App& command);
    /// Those alone that are about the server.
    void addServerTo(CLI::App& command);

    /// Whether there is a server.  Throws: InputError for options that only one of its own has.
    bool hasServer() const;

    /// Throws: InputError, when there is no server, or for a URL that is none.
    ServerAddress server() const;

    /// `window` is for an interpreter of its own.
    /// Throws: InputError, for a URL that is none; what InProcessSession and RemoteSession throw.
    std::unique_ptr<Session> open(const WindowSize& window) const;
};

}  // namespace app
