#include "endpoints/Endpoints.h"

#include <chrono>
#include <utility>

#include "access/clientType.h"

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
    if (route.methods == Route::Methods::PostOrWebSocket) {
        // Some Bayeux clients take any JSON for messages and wait on; what is none, they try again.
        reply.body = text;
        reply.contentType = "text/plain;charset=UTF-8";
    }
    return reply;
}

HttpReply preflight() {
    HttpReply reply{.status = 204, .contentType = {}};
    reply.headers = {
        {"Access-Control-Allow-Methods", "GET, HEAD, POST"},
        {"Access-Control-Allow-Headers",
         "Authorization, Connector-Client-Type, Content-Type, Pragma, X-Requested-With"},
        {"Access-Control-Max-Age", "600"},
    };
    return reply;
}

HttpReply wrongMethod(const Route& route) {
    if (route.handler == &answerFile) return errorReply(404, "There is no such path.");
    auto reply = errorReply(405, "The path does not allow this method.");
    reply.headers.emplace_back("Allow", route.allowedMethods());
    return reply;
}

std::optional<HttpReply> refusalOfBody(const HttpRequest& head) {
    if (!access::isClientType(head.clientType)) {
        return errorReply(400, "Connector-Client-Type must be at most 128 printable ASCII characters.");
    }
    if (head.method != HttpMethod::Post) return std::nullopt;
    if (!isJson(head.contentType)) return errorReply(415, "Content-Type must be application/json.");
    if (!head.contentEncoding.empty() && !equalsIgnoringCase(head.contentEncoding, "identity")) {
        return errorReply(415, "The body must not be compressed: Content-Encoding must be identity.");
    }
    return std::nullopt;
}

}  // namespace

Endpoints::Endpoints(Services services, std::ptrdiff_t unauthenticatedBodies)
    : services_(std::move(services)), largeBodies_(unauthenticatedBodies) {}

std::optional<HttpReply> Endpoints::check(const HttpRequest& head) {
    const Route& route = routeOf(head.path);
    auto reply = refusalOf(head, route);
    if (reply) {
        services_.metrics.count(route.metric, reply->status);
        addCommonHeaders(*reply, head.origin);
    }
    return reply;
}

std::optional<HttpReply> Endpoints::refusalOf(const HttpRequest& head, const Route& route) const {
    const auto& access = services_.access;
    if (isStopping_) return unavailable(route, "The server is stopping.");
    if (head.host.empty()) return errorReply(400, "A request must have exactly one Host header.");
    if (!access.isAllowedHost(head)) return errorReply(403, "The Host must name this server.");
    if (!access.isAllowedOrigin(head)) return errorReply(403, "Pages of this Origin are not allowed.");
    if (head.method == HttpMethod::Options && access.isForeignOrigin(head.origin)) return preflight();
    if (route.access == Route::Access::Token && !access.isAuthenticated(head)) return unauthenticated(route);
    if (!route.allows(head)) return wrongMethod(route);
    return refusalOfBody(head);
}

HttpReply Endpoints::tooManyConnections(const HttpRequest& head) {
    const Route& route = routeOf(head.path);
    auto reply = unavailable(route, "Too many connections are open.");
    reply.headers.emplace_back("Retry-After", "1");
    services_.metrics.count(route.metric, reply.status);
    addCommonHeaders(reply, head.origin);
    return reply;
}

bool Endpoints::isAlwaysServed(const HttpRequest& head) {
    return routeOf(head.path).load == Route::Load::Always;
}

std::unique_ptr<bayeux::PendingPost> Endpoints::answer(const HttpRequest& request, Done done) {
    const Route& route = routeOf(request.path);
    auto finish = [this, metric = route.metric, origin = request.origin, done = std::move(done),
                   begin = std::chrono::steady_clock::now()](HttpReply reply) {
        services_.metrics.record(metric, reply.status, std::chrono::steady_clock::now() - begin);
        addCommonHeaders(reply, origin);
        done(std::move(reply));
    };
    return route.handler(services_, request, std::move(finish));
}

bool Endpoints::isWebSocket(const HttpRequest& head) {
    return head.wantsWebSocket && routeOf(head.path).methods == Route::Methods::PostOrWebSocket;
}

void Endpoints::open(const HttpRequest& upgrade, const std::shared_ptr<bayeux::ClientSocket>& socket) {
    services_.metrics.count(routeOf(upgrade.path).metric, 101);
    services_.desk.bayeux().open(socket);
}

HttpReply Endpoints::malformed(int status, std::string_view text) {
    services_.metrics.count("malformed", status);
    auto reply = errorReply(status, text);
    addCommonHeaders(reply, {});
    return reply;
}

void Endpoints::addCommonHeaders(HttpReply& reply, const std::string& origin) const {
    reply.headers.emplace_back("X-Content-Type-Options", "nosniff");
    if (reply.contentType.starts_with("application/json")) {
        reply.headers.emplace_back("Cache-Control", "no-store");
    }
    if (services_.access.isForeignOrigin(origin)) {
        reply.headers.emplace_back("Access-Control-Allow-Origin", origin);
        reply.headers.emplace_back("Access-Control-Allow-Credentials", "true");
        reply.headers.emplace_back("Access-Control-Expose-Headers", "Connector-Dropped");
        reply.headers.emplace_back("Vary", "Origin");
    }
}

}  // namespace gateway::endpoints
