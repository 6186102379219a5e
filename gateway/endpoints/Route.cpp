#include "endpoints/Route.h"

#include <algorithm>

namespace gateway::endpoints {

namespace {

using enum Route::Methods;
using enum Route::Access;
using enum Route::Load;

// The first that fits counts. Clients of Bayeux may show the token in their handshake. Whoever asks how the
// server is, or interrupts what it does, gets in however many clients there are.
constexpr Route routes[] = {
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
    {"/healthz", Get, Anybody, Always, "healthz", &answerHealth},
    {"/readyz", Get, Token, Always, "readyz", &answerReadiness},
    {"/metrics", Get, Token, Always, "metrics", &answerMetrics},
    {"/", Get, Token, Ordinary, "console", &answerHome},
    {"*", Get, Token, Ordinary, "console", &answerFile},
};

bool fits(const Route& route, std::string_view path) {
    if (!route.path.ends_with('*')) return path == route.path;
    return path.starts_with(route.path.substr(0, route.path.size() - 1));
}

}  // namespace

bool Route::allows(const HttpRequest& head) const {
    if (methods == Get) return head.method == HttpMethod::Get || head.method == HttpMethod::Head;
    return head.method == HttpMethod::Post || (methods == PostOrWebSocket && head.wantsWebSocket);
}

std::string_view Route::allowedMethods() const { return methods == Get ? "GET, HEAD" : "POST"; }

const Route& routeOf(std::string_view path) {
    return *std::ranges::find_if(routes, [path](const Route& route) { return fits(route, path); });
}

}  // namespace gateway::endpoints
