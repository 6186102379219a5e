#pragma once

#include <string_view>

#include "HttpRequest.h"
#include "access/Grant.h"
#include "endpoints/handlers.h"

namespace gateway::endpoints {

/// A path of the server, and everything that is known of it.
struct Route {
    enum class Methods {
        Get,
        Post,
        PostOrWebSocket,
        GetOrPost,
        GetOrDelete
    };  ///< HEAD goes wherever GET does
    /// What has the path: each interpreter, the default one also without a prefix; each, with its prefix
    /// alone; or the server.
    enum class Scope { Interpreter, NamedInterpreter, Server };
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
    Scope scope = Scope::Interpreter;
    access::Right right = access::Right::Use;  ///< that a token has to give, but for what `rightFor` says

    bool allows(const HttpRequest& head) const;
    /// The value of the header Allow.
    std::string_view allowedMethods() const;
    /// What a token has to give for a method: interpreters are made and ended where they stand.
    access::Right rightFor(HttpMethod method) const;
    /// Whether people open it in a browser.
    bool isPage() const { return handler == &answerHome || handler == &answerFile; }
};

/// That of what is not below the base path.
extern const Route outside;

/// The route of a path, whatever it is. `isNamed`: it stood after the prefix of an interpreter.  Threads:
/// any.
const Route& routeOf(std::string_view path, bool isNamed);

}  // namespace gateway::endpoints
