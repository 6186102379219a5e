#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace gateway {

namespace access {
struct Grant;
}
namespace endpoints {
struct Route;
}
namespace interpreters {
class Desk;
}

enum class HttpMethod { Get, Head, Post, Patch, Delete, Options, Other };

/// A request as the endpoints see it. A header that is not there is empty.
struct HttpRequest {
    HttpMethod method = HttpMethod::Other;
    std::string path;   ///< as it was sent, without the query
    std::string query;  ///< without its question mark
    std::string host;
    std::string origin;
    std::string authorization;
    std::string cookie;
    std::string contentType;
    std::string contentEncoding;
    std::string clientType;  ///< Connector-Client-Type
    std::string life;        ///< Connector-Interpreter-Life
    std::string userAgent;
    std::string acceptEncoding;
    std::string ifNoneMatch;
    bool wantsWebSocket = false;
    bool isSecure = false;           ///< the client has sent it over TLS
    bool isSchemeForwarded = false;  ///< as a trusted proxy says
    /// Of whom the request comes from, without the port: the peer of the connection, or who trusted proxies
    /// say.
    std::string clientAddress;
    std::string localAddress;  ///< that the client has reached, as it stands in Host, without the port
    std::string body{};

    // What Endpoints::check finds.
    std::string prefix{};       ///< what it has taken from before the path: "/interpreters/lab"
    std::string interpreter{};  ///< the id of the interpreter that the path is of; empty: of none
    std::shared_ptr<interpreters::Desk> desk{};  ///< null when there is no such interpreter
    const endpoints::Route* route = nullptr;
    /// The number in `life`; nothing when it holds none.
    std::optional<std::uint64_t> wantedLife() const;
    std::shared_ptr<const access::Grant>
        grant{};  ///< of the token that the request shows; null: it shows none
};

/// The first value of the parameter `name` in a query, with its percent signs decoded; empty when there is
/// none.
std::string queryValue(std::string_view query, std::string_view name);

/// Whether two texts in ASCII are the same but for the case of letters.
bool equalsIgnoringCase(std::string_view one, std::string_view other);

}  // namespace gateway
