#pragma once

#include <string>
#include <string_view>

namespace gateway {

enum class HttpMethod { Get, Head, Post, Options, Other };

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
    bool wantsWebSocket = false;
    std::string peerAddress;   ///< without the port
    std::string localAddress;  ///< that the client has reached, as it stands in Host, without the port
    std::string body{};
};

/// The first value of the parameter `name` in a query, with its percent signs decoded; empty when there is
/// none.
std::string queryValue(std::string_view query, std::string_view name);

/// Whether two texts in ASCII are the same but for the case of letters.
bool equalsIgnoringCase(std::string_view one, std::string_view other);

}  // namespace gateway
