#pragma once

#include <string>
#include <string_view>

#include "HttpRequest.h"
#include "access/Grant.h"
#include "endpoints/handlers.h"

namespace gateway::endpoints {

/// A path of the server, and everything that is known of it.
struct Route {
    /// HEAD goes wherever GET does.
    enum Methods : unsigned { Get = 1, Post = 2, Patch = 4, Delete = 8, WebSocket = 16 };
    /// What has the path: each interpreter, the default one also without a prefix; each, with its prefix
    /// alone; or the server. Of notebook clients: the server and, with its prefix, each interpreter for
    /// itself; or a kernel, which the path names.
    enum class Scope { Interpreter, NamedInterpreter, Server, Notebooks, Kernel };
    /// Who may use it.
    enum class Access {
        Anybody,
        Token,        ///< who shows the token
        OwnProtocol,  ///< whoever the handler lets in
    };
    /// Whether it is served over connections that found no place among those of authenticated clients.
    enum class Load { Ordinary, Always };

    /// A '*' stands for one segment; at the end, for whatever comes.
    std::string_view path;
    unsigned methods;
    Access access;
    Load load;
    std::string_view metric;  ///< the endpoint in the metrics
    Handler handler;
    Scope scope = Scope::Interpreter;
    access::Right right = access::Right::Use;  ///< that a token has to give, but for what `rightFor` says

    bool allows(const HttpRequest& head) const;
    /// The value of the header Allow.
    std::string allowedMethods() const;
    /// What stands in a path of this route where its own has the '*'.
    std::string_view parameterIn(std::string_view path) const;
    /// What a token has to give for a method: interpreters are made and ended where they stand.
    access::Right rightFor(HttpMethod method) const;
    /// Whether people open it in a browser.
    bool isPage() const { return handler == &answerHome || handler == &answerFile; }
    /// Whether its clients are those of notebook servers.
    bool isOfNotebooks() const { return scope == Scope::Notebooks || scope == Scope::Kernel; }
};

/// That of what is not below the base path.
extern const Route outside;

/// The route of a path, whatever it is. `isNamed`: it stood after the prefix of an interpreter.  Threads:
/// any.
const Route& routeOf(std::string_view path, bool isNamed);

}  // namespace gateway::endpoints
