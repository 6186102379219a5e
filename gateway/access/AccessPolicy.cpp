#include "access/AccessPolicy.h"

#include <algorithm>
#include <array>
#include <utility>

#include "access/token.h"

namespace gateway::access {

namespace {

constexpr std::string_view plainScheme = "http://";
constexpr std::string_view secureScheme = "https://";

struct Authority {
    std::string_view name;  ///< an IPv6 address keeps its brackets
    std::string_view port;
};

Authority split(std::string_view authority, std::string_view defaultPort) {
    const auto colon = authority.rfind(':');
    const auto bracket = authority.rfind(']');
    if (colon == std::string_view::npos || (bracket != std::string_view::npos && bracket > colon)) {
        return {authority, defaultPort};
    }
    return {authority.substr(0, colon), authority.substr(colon + 1)};
}

// A page of another port may have set one of the same name, which comes first.
template <class Find>
auto firstOfCookies(std::string_view cookies, std::string_view name, Find find) -> decltype(find(name)) {
    while (!cookies.empty()) {
        std::string_view pair = cookies.substr(0, cookies.find(';'));
        cookies.remove_prefix(std::min(cookies.size(), pair.size() + 1));
        while (pair.starts_with(' ')) pair.remove_prefix(1);
        if (pair.size() <= name.size() || !pair.starts_with(name) || pair[name.size()] != '=') continue;
        if (const auto found = find(pair.substr(name.size() + 1))) return found;
    }
    return nullptr;
}

}  // namespace

AccessPolicy::AccessPolicy(AccessOptions options, std::uint16_t port)
    : hosts_(std::move(options.hosts)),
      origins_(std::move(options.origins)),
      basePath_(std::move(options.basePath)),
      port_(std::to_string(port)),
      cookieName_("numora-key-" + port_),
      tokens_(tokensFrom(std::move(options.token), std::move(options.restricted))) {}

std::shared_ptr<AccessPolicy::Tokens> AccessPolicy::tokensFrom(
    std::string token, std::vector<RestrictedToken> restricted) const {
    auto tokens = std::make_shared<Tokens>();
    const auto add = [&](const std::string& digest, const std::string& purpose, Grant grant) {
        tokens->keys.push_back(
            {digest, derivedKey(token, purpose), std::make_shared<const Grant>(std::move(grant))});
    };
    add(digestOf(token), cookieName_,
        {.interpreters = {"*"}, .rights = {Right::Use, Right::Restart, Right::Create}});
    for (auto& [digest, grant] : restricted) add(digest, cookieName_ + ":" + digest, std::move(grant));
    tokens->first = std::move(token);
    return tokens;
}

void AccessPolicy::setTokens(std::string token, std::vector<RestrictedToken> restricted) {
    const auto next = tokensFrom(std::move(token), std::move(restricted));
    const auto before = tokens_.get();
    for (Key& key : next->keys) {
        const auto same = std::ranges::find_if(before->keys, [&](const Key& old) {
            return key.digest == old.digest && *key.grant == *old.grant;
        });
        if (same != before->keys.end()) key.grant = same->grant;
    }
    tokens_.set(next);
}

bool AccessPolicy::isCurrent(const GrantPtr& grant) const {
    const auto tokens = tokens_.get();
    return std::ranges::any_of(tokens->keys, [&](const Key& key) { return key.grant == grant; });
}

bool AccessPolicy::isOwn(std::string_view name, std::string_view localAddress) const {
    constexpr std::array<std::string_view, 3> loopback = {"127.0.0.1", "localhost", "[::1]"};
    return std::ranges::any_of(loopback, [&](auto own) { return equalsIgnoringCase(name, own); }) ||
           equalsIgnoringCase(name, localAddress);
}

bool AccessPolicy::isAllowedAuthority(std::string_view authority, std::string_view defaultPort,
                                      std::string_view localAddress) const {
    const Authority wanted = split(authority, defaultPort);
    if (wanted.name.empty()) return false;
    if (wanted.port == port_ && isOwn(wanted.name, localAddress)) return true;
    return std::ranges::any_of(hosts_, [&](const std::string& configured) {
        const Authority allowed = split(configured, wanted.port);
        return equalsIgnoringCase(allowed.name, wanted.name) && allowed.port == wanted.port;
    });
}

bool AccessPolicy::isAllowedHost(const HttpRequest& request) const {
    // Without a port it is the scheme's own, which is not known behind a proxy.
    return isAllowedAuthority(request.host, "80", request.localAddress) ||
           isAllowedAuthority(request.host, "443", request.localAddress);
}

bool AccessPolicy::isAllowedOrigin(const HttpRequest& request) const {
    const std::string_view origin = request.origin;
    if (origin.empty() || isForeignOrigin(origin)) return true;
    const bool isSecure = origin.starts_with(secureScheme);
    if (!isSecure && !origin.starts_with(plainScheme)) return false;
    if (isSecure != request.isSecure && (request.isSecure || request.isSchemeForwarded)) return false;
    const std::string_view defaultPort = isSecure ? "443" : "80";
    const Authority page =
        split(origin.substr(isSecure ? secureScheme.size() : plainScheme.size()), defaultPort);
    if (page.port == port_ && isSecure == request.isSecure && isOwn(page.name, request.localAddress)) {
        return true;
    }
    const Authority host = split(request.host, defaultPort);
    const bool isOfHost = equalsIgnoringCase(page.name, host.name) && page.port == host.port;
    return std::ranges::any_of(hosts_, [&](const std::string& configured) {
        const Authority allowed = split(configured, "");
        return equalsIgnoringCase(allowed.name, page.name) &&
               (allowed.port.empty() ? isOfHost : allowed.port == page.port);
    });
}

bool AccessPolicy::isForeignOrigin(std::string_view origin) const {
    return std::ranges::any_of(origins_,
                               [&](const auto& allowed) { return equalsIgnoringCase(allowed, origin); });
}

AccessPolicy::GrantPtr AccessPolicy::grantOf(const HttpRequest& request) const {
    const auto tokens = tokens_.get();
    const std::string_view authorization = request.authorization;
    for (const std::string_view scheme : {"Bearer ", "token "}) {  // the second is that of notebook clients
        if (authorization.size() <= scheme.size()) continue;
        if (!equalsIgnoringCase(authorization.substr(0, scheme.size()), scheme)) continue;
        if (const auto grant = tokens->grantOf(authorization.substr(scheme.size()))) return grant;
    }
    if (const auto grant = tokens->grantOf(queryValue(request.query, "token"))) return grant;
    return firstOfCookies(request.cookie, cookieName_, [&tokens](std::string_view value) {
        return tokens->grantOfKey(value, &Key::cookieKey);
    });
}

AccessPolicy::GrantPtr AccessPolicy::grantOf(std::string_view token) const {
    return tokens_.get()->grantOf(token);
}

AccessPolicy::GrantPtr AccessPolicy::Tokens::grantOf(std::string_view token) const {
    if (isSameSecret(token, first)) return keys.front().grant;
    if (keys.size() == 1 || token.empty()) return nullptr;
    return grantOfKey(digestOf(token), &Key::digest);
}

AccessPolicy::GrantPtr AccessPolicy::Tokens::grantOfKey(std::string_view text,
                                                        std::string Key::*member) const {
    const Key* found = nullptr;
    for (const Key& key : keys) {  // all of them, whichever it is
        if (isSameSecret(text, key.*member)) found = &key;
    }
    return found ? found->grant : nullptr;
}

// Without a path a cookie is for the folder of the address that the browser has asked for, which a proxy may
// have shortened.
std::string AccessPolicy::setCookie(const Grant& grant, const HttpRequest& request) const {
    const auto tokens = tokens_.get();
    const auto key =
        std::ranges::find_if(tokens->keys, [&](const Key& each) { return each.grant.get() == &grant; });
    if (key == tokens->keys.end()) return {};
    std::string path = basePath_;
    if (path.empty() && !request.prefix.empty()) path = "/";
    if (!path.empty()) path.insert(0, "; Path=");
    return cookieName_ + "=" + key->cookieKey + path + "; HttpOnly; SameSite=Strict" +
           (request.isSecure ? "; Secure" : "");
}

}  // namespace gateway::access
