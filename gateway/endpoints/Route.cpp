#include "endpoints/Route.h"

#include <algorithm>

namespace gateway::endpoints {

namespace {

using enum Route::Methods;
using enum Route::Access;
using enum Route::Load;
using enum Route::Scope;

// The first that fits counts. Clients of Bayeux may show the token in their handshake. Whoever asks how the
// server is, or interrupts what it does, gets in however many clients there are.
constexpr Route routes[] = {
    {"/interpreters", GetOrPost, Token, Always, "interpreters", &answerInterpreters, Server},
    {"", GetOrDelete, Token, Always, "interpreter", &answerInterpreter, NamedInterpreter},
    {"/restart", Post, Token, Always, "restart", &answerRestart, NamedInterpreter, access::Right::Restart},
    {"/deaths", Get, Token, Always, "deaths", &answerDeaths, NamedInterpreter},
    {"/connector/v1/Eval", Post, Token, Ordinary, "eval", &answerMessage},
    {"/connector/v1/FEval", Post, Token, Ordinary, "feval", &answerMessage},
    {"/connector/v1/Interrupt", Post, Token, Always, "interrupt", &answerMessage},
    {"/connector/*", Post, Token, Ordinary, "other_message", &answerMessage},
    {"/messages", Post, Token, Ordinary, "messages", &answerEnvelope},
    {"/cometd", PostOrWebSocket, OwnProtocol, Ordinary, "bayeux", &answerBayeux},
    {"/cometd/", PostOrWebSocket, OwnProtocol, Ordinary, "bayeux", &answerBayeux},
    {"/cometd/handshake", PostOrWebSocket, OwnProtocol, Ordinary, "bayeux", &answerBayeux},
    {"/cometd/connect", PostOrWebSocket, OwnProtocol, Ordinary, "bayeux", &answerBayeux},
    {"/cometd/disconnect", PostOrWebSocket, OwnProtocol, Ordinary, "bayeux", &answerBayeux},
    {"/healthz", Get, Anybody, Always, "healthz", &answerHealth, Server},
    {"/readyz", Get, Token, Always, "readyz", &answerReadiness},
    {"/metrics", Get, Token, Always, "metrics", &answerMetrics, Server},
    {"/", Get, Token, Ordinary, "console", &answerHome},
    {"*", Get, Token, Ordinary, "console", &answerFile},
};

bool fits(const Route& route, std::string_view path, bool isNamed) {
    if (route.scope == (isNamed ? Server : NamedInterpreter)) return false;
    if (!route.path.ends_with('*')) return path == route.path;
    return path.starts_with(route.path.substr(0, route.path.size() - 1));
}

}  // namespace

bool Route::allows(const HttpRequest& head) const {
    switch (head.method) {
        case HttpMethod::Get:
        case HttpMethod::Head:
            return methods == Get || methods == GetOrPost || methods == GetOrDelete ||
                   (methods == PostOrWebSocket && head.wantsWebSocket);
        case HttpMethod::Post:
            return methods == Post || methods == PostOrWebSocket || methods == GetOrPost;
        case HttpMethod::Delete:
            return methods == GetOrDelete;
        default:
            return methods == PostOrWebSocket && head.wantsWebSocket;
    }
}

std::string_view Route::allowedMethods() const {
    switch (methods) {
        case Get:
            return "GET, HEAD";
        case GetOrPost:
            return "GET, HEAD, POST";
        case GetOrDelete:
            return "GET, HEAD, DELETE";
        default:
            return "POST";
    }
}

access::Right Route::rightFor(HttpMethod method) const {
    const bool isManaging = method == HttpMethod::Delete || (scope == Server && method == HttpMethod::Post);
    return isManaging ? access::Right::Create : right;
}

const Route outside = {"", Get, Anybody, Ordinary, "outside", nullptr, Server};

const Route& routeOf(std::string_view path, bool isNamed) {
    return *std::ranges::find_if(routes, [&](const Route& route) { return fits(route, path, isNamed); });
}

}  // namespace gateway::endpoints
