#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Current.h"
#include "HttpRequest.h"
#include "access/Grant.h"

namespace gateway::access {

/// A token that the server knows the digest of alone.
struct RestrictedToken {
    std::string digest;  ///< as digestOf
    Grant grant;
};

struct AccessOptions {
    std::string token;                          ///< must not be empty; whoever shows it may do all
    std::vector<RestrictedToken> restricted{};  ///< further ones
    std::vector<std::string> hosts{};    ///< further names of this server: with a port, or for every port
    std::vector<std::string> origins{};  ///< further origins whose pages may use it: "https://lab.example"
    std::string basePath{};              ///< in front of all paths of the server
};

/// Who may talk to the server.
///
/// A page that a user happens to visit must not reach it. So a request's Host, which names what a browser
/// thinks that it talks to, must be the loopback, the address that the connection has reached, or a
/// configured name. Its Origin, which browsers add for pages, must be that of this server, by scheme, host
/// and port, or a configured one. A name that is configured for every port is this server's at the port in
/// Host alone: other ports of the machine may be another user's. The scheme of the page has to be that of the
/// request, as far as it is known: a proxy of which nobody says that it is to be trusted may have had TLS.
///
/// Browsers get a cookie. Cookies do not know ports, so it is not the token but a key that is derived from it
/// for this port, under a name with the port. Those of the restricted tokens are derived from the first one,
/// too: whoever reads the digests could make them otherwise.
///
/// Tokens may be replaced. Whoever has shown one that is gone goes on with what it has begun, and begins
/// nothing new with it.
///
/// Threads: every operation from any thread; `setTokens` from one.
class AccessPolicy {
public:
    using GrantPtr = std::shared_ptr<const Grant>;

    /// `port` is the one that is listened on.
    AccessPolicy(AccessOptions options, std::uint16_t port);

    /// Has these tokens count from now on, and no others; they are as in AccessOptions. Those that were there
    /// already, with the same rights, keep their grants.
    void setTokens(std::string token, std::vector<RestrictedToken> restricted);

    bool isAllowedHost(const HttpRequest& request) const;
    /// A request without an origin does not come from a browser's page, and is allowed.
    bool isAllowedOrigin(const HttpRequest& request) const;
    /// Whether the origin is one of those that were configured, so that browsers have to be told of it.
    bool isForeignOrigin(std::string_view origin) const;

    /// What the sender of the request may do, who shows a token, in a header or the query, or the key of one
    /// in any of its cookies; null for others.  Compares in constant time.
    GrantPtr grantOf(const HttpRequest& request) const;
    /// The same for the text of a token.
    GrantPtr grantOf(std::string_view token) const;

    /// Whether its token is still one of those that count.
    bool isCurrent(const GrantPtr& grant) const;

    /// What makes a browser show the key of a token with each request after this one: the value of
    /// Set-Cookie. Empty for one that is gone.
    std::string setCookie(const Grant& grant, const HttpRequest& request) const;

private:
    struct Key {
        std::string digest;  ///< of the token
        std::string cookieKey;
        GrantPtr grant;
    };
    struct Tokens {
        std::string first;      ///< the one that may do all
        std::vector<Key> keys;  ///< the first is that of this one

        GrantPtr grantOf(std::string_view token) const;
        GrantPtr grantOfKey(std::string_view text, std::string Key::*member) const;
    };

    std::shared_ptr<Tokens> tokensFrom(std::string token, std::vector<RestrictedToken> restricted) const;
    bool isOwn(std::string_view name, std::string_view localAddress) const;
    bool isAllowedAuthority(std::string_view authority, std::string_view defaultPort,
                            std::string_view localAddress) const;

    const std::vector<std::string> hosts_;
    const std::vector<std::string> origins_;
    const std::string basePath_;
    const std::string port_;
    const std::string cookieName_;
    Current<const Tokens> tokens_;
};

}  // namespace gateway::access
