#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "HttpRequest.h"

namespace gateway::access {

struct AccessOptions {
    std::string token;                   ///< must not be empty
    std::vector<std::string> hosts{};    ///< further names of this server: with a port, or for every port
    std::vector<std::string> origins{};  ///< further origins whose pages may use it: "https://lab.example"
    bool isSecure = false;               ///< connections are encrypted
};

/// Who may talk to the server.
///
/// A page that a user happens to visit must not reach it. So a request's Host, which names what a browser
/// thinks that it talks to, must be the loopback, the address that the connection has reached, or a
/// configured name. Its Origin, which browsers add for pages, must be that of this server, by scheme, host
/// and port, or a configured one. A name that is configured for every port is this server's at the port in
/// Host alone: other ports of the machine may be another user's.
///
/// Browsers get a cookie. Cookies do not know ports, so it is not the token but a key that is derived from it
/// for this port, under a name with the port.
///
/// Threads: every operation from any thread; nothing changes after construction.
class AccessPolicy {
public:
    /// `port` is the one that is listened on.
    AccessPolicy(AccessOptions options, std::uint16_t port);

    bool isAllowedHost(const HttpRequest& request) const;
    /// A request without an origin does not come from a browser's page, and is allowed.
    bool isAllowedOrigin(const HttpRequest& request) const;
    /// Whether the origin is one of those that were configured, so that browsers have to be told of it.
    bool isForeignOrigin(std::string_view origin) const;

    /// Whether the request shows the token, in a header or the query, or the key in any of its cookies.
    bool isAuthenticated(const HttpRequest& request) const;
    /// Compares in constant time.
    bool isToken(std::string_view text) const noexcept;

    /// What makes a browser show the key with each later request: the value of Set-Cookie.
    std::string setCookie() const;

private:
    bool isOwn(std::string_view name, std::string_view localAddress) const;
    bool isAllowedAuthority(std::string_view authority, std::string_view defaultPort,
                            std::string_view localAddress) const;

    const AccessOptions options_;
    const std::string port_;
    const std::string cookieName_;
    const std::string cookieKey_;
};

}  // namespace gateway::access
