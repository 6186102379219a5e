#pragma once

#include <string_view>

#include "HttpRequest.h"
#include "endpoints/handlers.h"

namespace gateway::endpoints {

/// A path of the server, and everything that is known of it.
struct Route {
    enum class Methods { Get, Post, PostOrWebSocket };  ///< HEAD goes wherever GET does
    /// Who may use it.
    enum class Access {
        Anybody,
        Token,        ///< who shows the token
        OwnProtocol,  ///< whoever the handler lets in
    };
    /// Whether it is served over connections that found no place among those of authenticated clients.
    enum class Load { Ordinary, Always };

    std::string_view path;  ///< one that ends with '*' stands for all that begin with what is before it
    Methods methods;
    Access access;
    Load load;
    std::string_view metric;  ///< the endpoint in the metrics
    Handler handler;

    bool allows(const HttpRequest& head) const;
    /// The value of the header Allow.
    std::string_view allowedMethods() const;
    /// Whether people open it in a browser.
    bool isPage() const { return handler == &answerHome || handler == &answerFile; }
};

/// The route of a path, whatever it is.  Threads: any.
const Route& routeOf(std::string_view path);

}  // namespace gateway::endpoints
