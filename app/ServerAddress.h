#pragma once

#include <cstdint>
#include <string>

namespace app {

/// Where a server is, and what it is to be shown.
struct ServerAddress {
    bool isSecure = false;
    std::string host;  ///< a name or an address, without brackets
    std::uint16_t port = 0;
    std::string folder;  ///< in front of every path; empty, or "/" and more without a slash at its end
    std::string token;   ///< empty for none

    /// What the server prints when it starts, or the address within: a token in it is taken out of it.
    /// Throws: InputError, which does not show the token.
    static ServerAddress from(const std::string& text);

    /// As people write it, without the token.
    std::string url() const;
    /// The host, and the port where it is not the usual one.
    std::string authority() const;
};

/// Throws: InputError unless `token` is empty or of the characters that tokens consist of.
void requireToken(const std::string& token);

}  // namespace app
