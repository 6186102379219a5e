#include "server/checkOptions.h"

#include <algorithm>
#include <regex>
#include <stdexcept>
#include <string>

namespace gateway {

namespace {

constexpr int highestPort = 65535;

std::string inQuotes(const std::string& text) { return "\"" + text + "\""; }

bool isPort(const std::string& digits) {
    return digits.empty() || std::stoi(digits) <= highestPort;  // of five digits at most
}

void checkHost(const std::string& host) {
    static const std::regex form(R"((?:[\w.~-]+|\[[\da-fA-F:.]+\])(?::([1-9]\d{0,4}))?)");
    std::smatch parts;
    if (std::regex_match(host, parts, form) && isPort(parts[1])) return;
    throw std::invalid_argument(
        "A further name of the server (--allow-host, hosts) must be a name or an address, with "
        "or without a port, such as lab.example or [2001:db8::7]:8443: " +
        inQuotes(host) + " never matches.");
}

void checkOrigin(const std::string& origin) {
    // No page is got by a WebSocket.
    static const std::regex form(
        R"((?!wss?:)([a-z][\w+.-]*)://((?:[\w.~-]+|\[[\da-f:.]+\]))(?::([1-9]\d{0,4}))?)", std::regex::icase);
    const std::string option = "An allowed origin (--allow-origin, origins) must be ";
    std::smatch parts;
    if (!std::regex_match(origin, parts, form) || !isPort(parts[3])) {
        throw std::invalid_argument(
            option +
            "a scheme and a host, with the port unless it is the usual one, and nothing else, "
            "such as https://lab.example: " +
            inQuotes(origin) + " never matches.");
    }
    static const std::regex hasUsualPort("https:.*:443|http:.*:80", std::regex::icase);
    if (!std::regex_match(origin, hasUsualPort)) return;
    throw std::invalid_argument(option + "written without the usual port, as browsers send it: " +
                                inQuotes(parts[1].str() + "://" + parts[2].str()) + ", not " +
                                inQuotes(origin) + ".");
}

void checkBasePath(std::string& path) {
    static const std::regex form(R"((?:/(?!(?:\.{1,2}|interpreters)(?:/|$))[\w.~-]+)*)");
    const std::string given = path;
    while (path.ends_with('/')) path.pop_back();
    if (std::regex_match(path, form)) return;
    throw std::invalid_argument(
        "The base path (--base-path, base_path) must begin with \"/\", and its parts must "
        "consist of letters, digits and -._~, and none be \"interpreters\", which names one: " +
        inQuotes(given) + ".");
}

}  // namespace

void checkOptions(GatewayOptions& options) {
    std::ranges::for_each(options.hosts, checkHost);
    std::ranges::for_each(options.origins, checkOrigin);
    checkBasePath(options.basePath);
    for (const auto& name : options.open) {
        if (name == "readyz" || name == "metrics") continue;
        throw std::invalid_argument(
            "What is open without a token (--open, open) must be readyz or metrics: " + inQuotes(name) + ".");
    }
}

}  // namespace gateway
