#pragma once

#include <cstdint>
#include <string>

namespace app {

/// Where a server is, and what it is to be shown.
struct ServerAddress {
    bool isSecure = false;
    std::string host;  ///< a name or an address, without brackets
    std::uint16_t port = 0;
    std::string folder;       ///< in front of every path; empty, or "/" and more without a slash at its end
    std::string interpreter;  ///< of the server's; empty for the default one
    std::string token;        ///< empty for none

    /// What the server prints when it starts, or the address within: a token in it is taken out of it.
    /// Throws: InputError, which does not show the token.
    static ServerAddress from(const std::string& text);

    /// As people write it, without the token.
    std::string url() const;
    /// What is in front of the paths of the interpreter.
    std::string interpreterFolder() const;
    /// The server as such.
    ServerAddress withoutInterpreter() const;
    /// The host, and the port where it is not the usual one.
    std::string authority() const;
};

/// The path, within the folder of the server, of what concerns the interpreter as such.
std::string interpreterPath(const std::string& interpreter);

/// Throws: InputError, which says that `what` must be the id of an interpreter, unless `id` can be one.
void requireInterpreter(const std::string& what, const std::string& id);

/// Throws: InputError unless `token` is empty or of the characters that tokens consist of.
void requireToken(const std::string& token);

}  // namespace app
