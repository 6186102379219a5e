#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gateway::http {

enum class Method { Get, Head, Post, Options, Other };

/// A request as the endpoints see it. A header that is not there is empty.
struct Request {
    Method method = Method::Other;
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
    std::string peerAddress;  ///< without the port
    std::string
        localAddress;  ///< the one that the client has reached, as it stands in Host, without the port
    std::string body{};
};

/// What a request is answered with.
struct Reply {
    int status = 200;
    std::string body{};
    std::string contentType = "application/json;charset=UTF-8";
    std::vector<std::pair<std::string, std::string>> headers{};
};

/// `{"error": "..."}` with a status.
Reply errorReply(int status, std::string_view text);

/// The first value of the parameter `name` in a query, with its percent signs decoded; empty when there is
/// none.
std::string queryValue(std::string_view query, std::string_view name);

/// Whether two texts in ASCII are the same but for the case of letters.
bool equalsIgnoringCase(std::string_view one, std::string_view other);

}  // namespace gateway::http
