#include "ServerAddress.h"

#include <algorithm>
#include <regex>
#include <string_view>

#include <Poco/Exception.h>
#include <Poco/URI.h>

#include "text.h"

namespace app {

namespace {

bool isPlain(std::string_view text, std::string_view others) {
    return std::ranges::all_of(text, [&](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               others.find(c) != std::string_view::npos;
    });
}

bool isInterpreter(const std::string& id) {
    static const std::regex form("[a-z][a-z0-9-]{0,62}");
    return std::regex_match(id, form);
}

[[noreturn]] void refuse() {
    throw InputError(
        "the URL (--url or NUMORA_URL) must be http://HOST:PORT or https://HOST:PORT, with or without "
        "?token=TOKEN");
}

std::string_view withoutFrame(std::string_view text) {
    constexpr std::string_view announcement = "Listening on ";
    constexpr std::string_view blanks = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    if (text.starts_with(announcement)) text.remove_prefix(announcement.size());
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

}  // namespace

ServerAddress ServerAddress::from(const std::string& text) {
    ServerAddress address;
    try {
        const Poco::URI uri{std::string(withoutFrame(text))};
        address.isSecure = uri.getScheme() == "https";
        address.host = uri.getHost();
        address.port = uri.getPort();
        address.folder = uri.getPath();
        for (const auto& [name, value] : uri.getQueryParameters()) {
            if (name != "token") refuse();
            address.token = value;
        }
        if (!address.isSecure && uri.getScheme() != "http") refuse();
        if (!uri.getUserInfo().empty() || !uri.getFragment().empty()) refuse();
    } catch (const Poco::Exception&) {
        refuse();
    }
    while (address.folder.ends_with('/')) address.folder.pop_back();
    if (address.host.empty() || address.port == 0 || !isPlain(address.host, "-._~:%") ||
        !isPlain(address.folder, "-._~/")) {
        refuse();
    }
    requireToken(address.token);
    const auto slash = address.folder.rfind('/');
    const std::string last = slash == std::string::npos ? "" : address.folder.substr(slash + 1);
    if (isInterpreter(last) && address.folder.ends_with(interpreterPath(last))) {
        address.interpreter = last;
        address.folder.resize(address.folder.size() - interpreterPath(last).size());
    }
    return address;
}

std::string ServerAddress::url() const {
    return (isSecure ? "https://" : "http://") + authority() + interpreterFolder() + "/";
}

std::string ServerAddress::interpreterFolder() const {
    return interpreter.empty() ? folder : folder + interpreterPath(interpreter);
}

ServerAddress ServerAddress::withoutInterpreter() const {
    ServerAddress server = *this;
    server.interpreter.clear();
    return server;
}

std::string ServerAddress::authority() const {
    const bool isV6 = host.find(':') != std::string::npos;
    const std::string name = isV6 ? "[" + host + "]" : host;
    return port == (isSecure ? 443 : 80) ? name : name + ":" + std::to_string(port);
}

std::string interpreterPath(const std::string& interpreter) { return "/interpreters/" + interpreter; }

void requireInterpreter(const std::string& what, const std::string& id) {
    if (isInterpreter(id)) return;
    throw InputError(
        what + " must be the id of an interpreter: 1 to 63 letters a to z, digits and -, the first a letter");
}

void requireToken(const std::string& token) {
    if (!isPlain(token, "-._~")) throw InputError("the token must consist of letters, digits and -._~");
}

}  // namespace app
