#include "endpoints/Route.h"

#include <algorithm>
#include <utility>

#include "jupyter/rest/KernelApi.h"
#include "jupyter/rest/KernelSpecs.h"
#include "jupyter/rest/SessionApi.h"

namespace gateway::endpoints {

namespace {

using enum Route::Methods;
using enum Route::Access;
using enum Route::Load;
using enum Route::Scope;

// The first that fits counts. Clients of Bayeux may show the token in their handshake. Whoever asks how the
// server is, or interrupts what it does, gets in however many clients there are.
constexpr Route routes[] = {
    {"/interpreters", Get | Post, Token, Always, "interpreters", &answerInterpreters, Server},
    {"", Get | Delete, Token, Always, "interpreter", &answerInterpreter, NamedInterpreter},
    {"/restart", Post, Token, Always, "restart", &answerRestart, NamedInterpreter, access::Right::Restart},
    {"/deaths", Get, Token, Always, "deaths", &answerDeaths, NamedInterpreter},
    {"/connector/v1/Eval", Post, Token, Ordinary, "eval", &answerMessage},
    {"/connector/v1/FEval", Post, Token, Ordinary, "feval", &answerMessage},
    {"/connector/v1/Interrupt", Post, Token, Always, "interrupt", &answerMessage},
    {"/connector/*", Post, Token, Ordinary, "other_message", &answerMessage},
    {"/messages", Post, Token, Ordinary, "messages", &answerEnvelope},
    {"/cometd", Post | WebSocket, OwnProtocol, Ordinary, "bayeux", &answerBayeux},
    {"/cometd/", Post | WebSocket, OwnProtocol, Ordinary, "bayeux", &answerBayeux},
    {"/cometd/handshake", Post | WebSocket, OwnProtocol, Ordinary, "bayeux", &answerBayeux},
    {"/cometd/connect", Post | WebSocket, OwnProtocol, Ordinary, "bayeux", &answerBayeux},
    {"/cometd/disconnect", Post | WebSocket, OwnProtocol, Ordinary, "bayeux", &answerBayeux},
    {"/healthz", Get, Anybody, Always, "healthz", &answerHealth, Server},
    {"/readyz", Get, Token, Always, "readyz", &answerReadiness},
    {"/metrics", Get, Token, Always, "metrics", &answerMetrics, Server},
    {"/api", Get, Token, Ordinary, "api", &answerNotebook<&jupyter::version>, Notebooks},
    {"/api/status", Get, Token, Ordinary, "api_status", &answerNotebook<&jupyter::status>, Notebooks},
    {"/api/kernelspecs", Get, Token, Ordinary, "kernelspecs", &answerNotebook<&jupyter::kernelSpecs>,
     Notebooks},
    {"/api/kernelspecs/*", Get, Token, Ordinary, "kernelspecs", &answerNotebook<&jupyter::kernelSpec>,
     Notebooks},
    {"/kernelspecs/*/logo-64x64.png", Get, Token, Ordinary, "kernelspecs", &answerNotebook<&jupyter::logo>,
     Notebooks},
    {"/api/kernels", Get | Post, Token, Ordinary, "kernels", &answerNotebook<&jupyter::kernels>, Notebooks},
    {"/api/kernels/*/channels", WebSocket, Token, Ordinary, "kernel_channels", nullptr, Kernel},
    {"/api/kernels/*/interrupt", Post, Token, Always, "kernel_interrupt",
     &answerNotebook<&jupyter::interruptKernel>, Kernel},
    {"/api/kernels/*/restart", Post, Token, Always, "kernel_restart",
     &answerNotebook<&jupyter::restartKernel>, Kernel, access::Right::Restart},
    {"/api/kernels/*", Get | Delete, Token, Ordinary, "kernel", &answerNotebook<&jupyter::kernel>, Kernel},
    {"/api/sessions", Get | Post, Token, Ordinary, "sessions", &answerNotebook<&jupyter::sessions>,
     Notebooks},
    {"/api/sessions/*", Get | Patch | Delete, Token, Ordinary, "session", &answerNotebook<&jupyter::session>,
     Notebooks},
    {"/api/*", Get | Post | Patch | Delete, Token, Ordinary, "api_other", &answerNoSuchPath, Notebooks},
    {"/", Get, Token, Ordinary, "console", &answerHome},
    {"*", Get, Token, Ordinary, "console", &answerFile},
};

bool fits(const Route& route, std::string_view path, bool isNamed) {
    if (route.scope == (isNamed ? Server : NamedInterpreter)) return false;
    const auto star = route.path.find('*');
    if (star == std::string_view::npos) return path == route.path;
    const auto rest = route.path.substr(star + 1);
    if (!path.starts_with(route.path.substr(0, star)) || path.size() < star + rest.size()) return false;
    return rest.empty() ||
           (path.ends_with(rest) && route.parameterIn(path).find('/') == std::string_view::npos);
}

unsigned bitOf(const HttpRequest& head) {
    switch (head.method) {
        case HttpMethod::Get:
        case HttpMethod::Head:
            return head.wantsWebSocket ? Route::Get | Route::WebSocket : Route::Get;
        case HttpMethod::Post:
            return Route::Post;
        case HttpMethod::Patch:
            return Route::Patch;
        case HttpMethod::Delete:
            return Route::Delete;
        default:
            return 0;
    }
}

}  // namespace

bool Route::allows(const HttpRequest& head) const { return (methods & bitOf(head)) != 0; }

std::string Route::allowedMethods() const {
    std::string names;
    for (const auto& [method, name] :
         {std::pair(Get, "GET, HEAD"), {Post, "POST"}, {Patch, "PATCH"}, {Delete, "DELETE"}}) {
        if ((methods & method) != 0) names.append(names.empty() ? "" : ", ").append(name);
    }
    return names;
}

std::string_view Route::parameterIn(std::string_view ofRequest) const {
    const auto star = path.find('*');
    if (star == std::string_view::npos) return {};
    return ofRequest.substr(star, ofRequest.size() + 1 - path.size());
}

access::Right Route::rightFor(HttpMethod method) const {
    // What becomes of a kernel, its handler says.
    const bool isManaging = (method == HttpMethod::Delete && scope == NamedInterpreter) ||
                            (scope == Server && method == HttpMethod::Post);
    return isManaging ? access::Right::Create : right;
}

const Route outside = {"", Get, Anybody, Ordinary, "outside", nullptr, Server};

const Route& routeOf(std::string_view path, bool isNamed) {
    return *std::ranges::find_if(routes, [&](const Route& route) { return fits(route, path, isNamed); });
}

}  // namespace gateway::endpoints
