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
    : options_(std::move(options)),
      port_(std::to_string(port)),
      cookieName_("numora-key-" + port_),
      keys_([this] {
          std::vector<Key> keys = {
              {digestOf(options_.token),
               derivedKey(options_.token, cookieName_),
               {.interpreters = {"*"}, .rights = {Right::Use, Right::Restart, Right::Create}}}};
          for (const auto& [digest, grant] : options_.restricted) {
              keys.push_back({digest, derivedKey(options_.token, cookieName_ + ":" + digest), grant});
          }
          return keys;
      }()) {}

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
    return std::ranges::any_of(options_.hosts, [&](const std::string& configured) {
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
    return std::ranges::any_of(options_.hosts, [&](const std::string& configured) {
        const Authority allowed = split(configured, "");
        return equalsIgnoringCase(allowed.name, page.name) &&
               (allowed.port.empty() ? isOfHost : allowed.port == page.port);
    });
}

bool AccessPolicy::isForeignOrigin(std::string_view origin) const {
    return std::ranges::any_of(options_.origins,
                               [&](const auto& allowed) { return equalsIgnoringCase(allowed, origin); });
}

const Grant* AccessPolicy::grantOf(const HttpRequest& request) const {
    constexpr std::string_view scheme = "Bearer ";
    const std::string_view authorization = request.authorization;
    if (authorization.size() > scheme.size() &&
        equalsIgnoringCase(authorization.substr(0, scheme.size()), scheme)) {
        if (const auto* grant = grantOf(authorization.substr(scheme.size()))) return grant;
    }
    if (const auto* grant = grantOf(std::string_view(queryValue(request.query, "token")))) return grant;
    return firstOfCookies(request.cookie, cookieName_,
                          [this](std::string_view value) { return grantOfKey(value, &Key::cookieKey); });
}

const Grant* AccessPolicy::grantOf(std::string_view token) const {
    if (isSameSecret(token, options_.token)) return &keys_.front().grant;
    if (keys_.size() == 1 || token.empty()) return nullptr;
    return grantOfKey(digestOf(token), &Key::digest);
}

const Grant* AccessPolicy::grantOfKey(std::string_view text, std::string Key::*member) const {
    const Grant* grant = nullptr;
    for (const Key& key : keys_) {  // all of them, whichever it is
        if (isSameSecret(text, key.*member)) grant = &key.grant;
    }
    return grant;
}

std::string AccessPolicy::setCookie(const Grant& grant, bool isSecure) const {
    const auto key = std::ranges::find_if(keys_, [&](const Key& each) { return &each.grant == &grant; });
    return cookieName_ + "=" + key->cookieKey + "; Path=/; HttpOnly; SameSite=Strict" +
           (isSecure ? "; Secure" : "");
}

}  // namespace gateway::access
