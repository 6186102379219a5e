#include "endpoints/Endpoints.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "access/clientType.h"
#include "endpoints/BayeuxSpeaker.h"
#include "jupyter/rest/KernelApi.h"
#include "ports/wrongLife.h"

namespace gateway::endpoints {

namespace {

// Any page may send other types without asking first.
bool isJson(std::string_view contentType) {
    std::string_view type = contentType.substr(0, contentType.find(';'));
    while (type.ends_with(' ') || type.ends_with('\t')) type.remove_suffix(1);
    return equalsIgnoringCase(type, "application/json");
}

HttpReply unauthenticated(const Route& route) {
    auto reply = route.isPage()
                     ? pageReply(401, "Numora Connector",
                                 "Open the address that the server printed when it started: it holds the "
                                 "token.")
                     : errorReply(401, "The token is missing or wrong.");
    reply.headers.emplace_back("WWW-Authenticate", "Bearer");
    return reply;
}

HttpReply unavailable(const Route& route, std::string_view text) {
    auto reply = errorReply(503, text);
    if (route.handler == &answerBayeux) {
        // Some Bayeux clients take any JSON for messages and wait on; what is none, they try again.
        reply.body = text;
        reply.contentType = "text/plain;charset=UTF-8";
    }
    return reply;
}

HttpReply preflight() {
    HttpReply reply{.status = 204, .contentType = {}};
    reply.headers = {
        {"Access-Control-Allow-Methods", "GET, HEAD, POST, PATCH, DELETE"},
        {"Access-Control-Allow-Headers",
         "Authorization, Connector-Client-Type, Connector-Interpreter-Life, Content-Type, Pragma, "
         "X-Requested-With, X-XSRFToken"},
        {"Access-Control-Max-Age", "600"},
    };
    return reply;
}

HttpReply wrongMethod(const Route& route) {
    if (route.handler == &answerFile || route.handler == &answerNoSuchPath) {
        return errorReply(404, "There is no such path.");
    }
    if (route.methods == Route::WebSocket) return errorReply(426, "The path is that of a WebSocket.");
    auto reply = errorReply(405, "The path does not allow this method.");
    reply.headers.emplace_back("Allow", route.allowedMethods());
    return reply;
}

// Clients of notebook servers show the member "message".
void asNotebooksRead(HttpReply& reply) {
    constexpr std::string_view before = R"({"error":)";
    if (reply.body.starts_with(before)) reply.body.replace(0, before.size(), R"({"message":)");
}

/// Takes the base off a path; false where the path is not below it.
bool takeBase(std::string_view& path, std::string_view base) {
    if (!path.starts_with(base)) return false;
    const auto rest = path.substr(base.size());
    if (!rest.empty() && !rest.starts_with('/')) return false;
    path = rest;
    return true;
}

/// The part of a path that names an interpreter, and which is taken off; empty where there is none.
std::string_view takePrefix(std::string_view& path) {
    constexpr std::string_view begin = "/interpreters/";
    if (!path.starts_with(begin)) return {};
    const auto end = std::min(path.find('/', begin.size()), path.size());
    const auto prefix = path.substr(0, end);
    path.remove_prefix(end);
    return prefix;
}

/// Whether there is nothing to do where the path names no interpreter that there is.
bool isOfInterpreter(const HttpRequest& head) {
    const auto scope = head.route->scope;
    return scope == Route::Scope::Notebooks ? !head.prefix.empty() : scope != Route::Scope::Server;
}

bool isUnknownKernel(const HttpRequest& head) {
    return head.route->scope == Route::Scope::Kernel && head.interpreter.empty();
}

std::string_view nameOf(const HttpRequest& head, access::Right right) {
    if (head.method == HttpMethod::Delete) return "delete";
    switch (right) {
        case access::Right::Restart:
            return "restart";
        case access::Right::Create:
            return "create";
        default:
            return "use";
    }
}

std::optional<HttpReply> refusalByRights(const HttpRequest& head) {
    const access::Grant& grant = *head.grant;
    const Route& route = *head.route;
    if (route.handler == &answerMetrics && !grant.coversAll()) {
        return errorReply(403, "This token may not read the metrics of all interpreters.");
    }
    const auto right = route.rightFor(head.method);
    const bool isOfOne = isOfInterpreter(head) && !isUnknownKernel(head);
    if (!isOfOne && right == access::Right::Use) return std::nullopt;
    const auto denied = "This token may not " + std::string(nameOf(head, right));
    if (!grant.has(right)) return errorReply(403, denied + " interpreters.");
    if (!isOfOne || grant.covers(head.interpreter)) return std::nullopt;
    return errorReply(403, denied + " the interpreter \"" + head.interpreter + "\".");
}

/// A client that knows which process of the interpreter holds its variables does not reach another one.
std::optional<HttpReply> refusalByLife(const HttpRequest& head) {
    if (head.life.empty() || !head.desk) return std::nullopt;
    const auto wanted = head.wantedLife();
    if (!wanted) return errorReply(400, "Connector-Interpreter-Life must be an integer of at least 0.");
    const auto life = head.desk->port().life();
    if (*wanted == life) return std::nullopt;
    return errorReply(409, ports::wrongLife(*wanted, life));
}

std::optional<HttpReply> refusalOfBody(const HttpRequest& head) {
    if (!access::isClientType(head.clientType)) {
        return errorReply(400, "Connector-Client-Type must be at most 128 printable ASCII characters.");
    }
    // Notebook clients send none, or another type. Pages of other origins are refused anyway.
    if (head.method != HttpMethod::Post || head.route->isOfNotebooks()) return std::nullopt;
    if (!isJson(head.contentType)) return errorReply(415, "Content-Type must be application/json.");
    if (!head.contentEncoding.empty() && !equalsIgnoringCase(head.contentEncoding, "identity")) {
        return errorReply(415, "The body must not be compressed: Content-Encoding must be identity.");
    }
    return std::nullopt;
}

}  // namespace

Endpoints::Endpoints(Services services, std::ptrdiff_t unauthenticatedBodies)
    : services_(std::move(services)), largeBodies_(unauthenticatedBodies) {}

std::optional<HttpReply> Endpoints::check(HttpRequest& head) {
    resolve(head);
    auto reply = refusalOf(head);
    if (reply) {
        services_.metrics.count(head.route->metric, reply->status);
        if (head.route->isOfNotebooks()) asNotebooksRead(*reply);
        addCommonHeaders(*reply, head.origin, head.grant ? head.desk : nullptr);
    }
    return reply;
}

void Endpoints::resolve(HttpRequest& head) const {
    std::string_view path = head.path;
    // Whoever watches the process itself knows nothing of the proxy in front of it.
    if (!takeBase(path, services_.basePath) && path != "/healthz") {
        head.route = &outside;
        return;
    }
    head.prefix = takePrefix(path);
    const bool isNamed = !head.prefix.empty();
    head.route = &routeOf(path.empty() && !isNamed ? "/" : path, isNamed);
    head.path = std::string(path);
    head.grant = services_.access.grantOf(head);
    const auto scope = head.route->scope;
    if (isNamed) {
        head.interpreter = std::string_view(head.prefix).substr(head.prefix.rfind('/') + 1);
    } else if (scope == Route::Scope::Interpreter) {
        head.interpreter = interpreters::Registry::defaultId;
    }
    if (!head.interpreter.empty()) head.desk = services_.interpreters.find(head.interpreter);
    if (scope == Route::Scope::Kernel) resolveKernel(head);
}

/// A kernel is one of the server or, after its prefix, that of an interpreter. A token that is for others
/// does not learn of it.
void Endpoints::resolveKernel(HttpRequest& head) const {
    const auto desk = jupyter::kernelNamed(services_.interpreters, head.route->parameterIn(head.path));
    const bool isHere =
        desk && (head.prefix.empty() || desk == head.desk) && (!head.grant || head.grant->covers(desk->id()));
    head.desk = isHere ? desk : nullptr;
    head.interpreter = isHere ? desk->id() : "";
}

std::optional<HttpReply> Endpoints::refusalOf(const HttpRequest& head) const {
    const Route& route = *head.route;
    if (isStopping_) return unavailable(route, "The server is stopping.");
    if (head.host.empty()) return errorReply(400, "A request must have exactly one Host header.");
    if (auto refusal = refusalBySender(head)) return refusal;
    if (isUnknownKernel(head)) {
        return errorReply(404, jupyter::noSuchKernel(route.parameterIn(head.path)));
    }
    if (!head.desk && isOfInterpreter(head)) {
        return errorReply(404, interpreters::noSuchInterpreter(head.interpreter));
    }
    if (!route.allows(head)) return wrongMethod(route);
    if (auto refusal = refusalByLife(head)) return refusal;
    return refusalOfBody(head);
}

std::optional<HttpReply> Endpoints::refusalBySender(const HttpRequest& head) const {
    using enum access::Refusals::Reason;
    const auto& access = services_.access;
    const auto refused = [&](access::Refusals::Reason reason, HttpReply reply, std::string_view detail = {}) {
        services_.refusals.note(reason, head.clientAddress, detail);
        return reply;
    };
    if (!access.isAllowedHost(head)) {
        // What is before the @ may be a secret.
        const std::string_view host = std::string_view(head.host).substr(head.host.rfind('@') + 1);
        return refused(Host, errorReply(403, "The Host must name this server."), host);
    }
    if (!access.isAllowedOrigin(head)) {
        return refused(Origin, errorReply(403, "Pages of this Origin are not allowed."), head.origin);
    }
    if (head.method == HttpMethod::Options && access.isForeignOrigin(head.origin)) return preflight();
    if (head.route == &outside) return errorReply(404, "There is no such path.");
    if (isOpen(head)) return std::nullopt;
    if (head.route->access == Route::Access::Token && !head.grant) {
        return refused(Token, unauthenticated(*head.route));
    }
    auto refusal = head.grant ? refusalByRights(head) : std::nullopt;
    if (refusal) services_.refusals.note(Rights, head.clientAddress);
    return refusal;
}

// Of named interpreters it would tell who there are.
bool Endpoints::isOpen(const HttpRequest& head) const {
    return head.prefix.empty() &&
           std::ranges::find(services_.open, head.route->metric) != services_.open.end();
}

HttpReply Endpoints::tooManyConnections(const HttpRequest& head) {
    services_.refusals.note(access::Refusals::Reason::Connections, head.clientAddress);
    auto reply = unavailable(*head.route, "Too many connections are open.");
    reply.headers.emplace_back("Retry-After", "1");
    services_.metrics.count(head.route->metric, reply.status);
    addCommonHeaders(reply, head.origin, head.grant ? head.desk : nullptr);
    return reply;
}

bool Endpoints::isAlwaysServed(const HttpRequest& head) { return head.route->load == Route::Load::Always; }

std::unique_ptr<bayeux::PendingPost> Endpoints::answer(const HttpRequest& request, Done done) {
    auto finish = [this, route = request.route, origin = request.origin, desk = request.desk,
                   done = std::move(done), begin = std::chrono::steady_clock::now()](HttpReply reply) {
        services_.metrics.record(route->metric, reply.status, std::chrono::steady_clock::now() - begin);
        if (route->isOfNotebooks()) asNotebooksRead(reply);
        addCommonHeaders(reply, origin, desk);
        done(std::move(reply));
    };
    return request.route->handler(services_, request, std::move(finish));
}

bool Endpoints::isWebSocket(const HttpRequest& head) {
    return head.wantsWebSocket && (head.route->methods & Route::WebSocket) != 0;
}

std::shared_ptr<sockets::Speaker> Endpoints::speakerFor(const HttpRequest& upgrade) {
    if (upgrade.route->handler == &answerBayeux) {
        return std::make_shared<BayeuxSpeaker>(peerOf(upgrade), upgrade.desk);
    }
    return upgrade.desk->kernel().speaker(queryValue(upgrade.query, "session_id"), upgrade.grant,
                                          upgrade.grant->allows(access::Right::Restart, upgrade.interpreter));
}

HttpReply Endpoints::malformed(int status, std::string_view text) {
    services_.metrics.count("malformed", status);
    auto reply = errorReply(status, text);
    addCommonHeaders(reply, {}, nullptr);
    return reply;
}

void Endpoints::addCommonHeaders(HttpReply& reply, const std::string& origin,
                                 const std::shared_ptr<interpreters::Desk>& desk) const {
    if (const auto life = desk ? desk->port().life() : 0; life > 0) {
        reply.headers.emplace_back("Connector-Interpreter-Life", std::to_string(life));
    }
    reply.headers.emplace_back("X-Content-Type-Options", "nosniff");
    if (reply.contentType.starts_with("application/json")) {
        reply.headers.emplace_back("Cache-Control", "no-store");
    }
    if (services_.access.isForeignOrigin(origin)) {
        reply.headers.emplace_back("Access-Control-Allow-Origin", origin);
        reply.headers.emplace_back("Access-Control-Allow-Credentials", "true");
        reply.headers.emplace_back("Access-Control-Expose-Headers",
                                   "Connector-Dropped, Connector-Interpreter-Life, Retry-After");
        reply.headers.emplace_back("Vary", "Origin");
    }
}

}  // namespace gateway::endpoints
