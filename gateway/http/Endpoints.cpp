#include "http/Endpoints.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include "http/messageRequests.h"

namespace gateway::http {

using metrics::Endpoint;

namespace {

constexpr std::size_t longestClientType = 128;

Endpoint endpointOf(std::string_view path) {
    constexpr std::array<std::pair<std::string_view, Endpoint>, 12> paths = {{
        {"/connector/v1/Eval", Endpoint::Eval},
        {"/connector/v1/FEval", Endpoint::FEval},
        {"/connector/v1/Interrupt", Endpoint::Interrupt},
        {"/messages", Endpoint::Messages},
        {"/cometd", Endpoint::Bayeux},
        {"/cometd/", Endpoint::Bayeux},
        {"/cometd/handshake", Endpoint::Bayeux},
        {"/cometd/connect", Endpoint::Bayeux},
        {"/cometd/disconnect", Endpoint::Bayeux},
        {"/healthz", Endpoint::Health},
        {"/readyz", Endpoint::Ready},
        {"/metrics", Endpoint::Metrics},
    }};
    const auto* const found = std::ranges::find(paths, path, &std::pair<std::string_view, Endpoint>::first);
    if (found != paths.end()) return found->second;
    return path.starts_with("/connector/") ? Endpoint::OtherMessage : Endpoint::Console;
}

bool takesPost(Endpoint endpoint) { return endpoint <= Endpoint::Bayeux; }

bool isAllowedMethod(Endpoint endpoint, const Request& head) {
    if (takesPost(endpoint)) {
        return head.method == Method::Post || (endpoint == Endpoint::Bayeux && head.wantsWebSocket);
    }
    return head.method == Method::Get || head.method == Method::Head;
}

// Any page may send other types without asking first.
bool isJson(std::string_view contentType) {
    std::string_view type = contentType.substr(0, contentType.find(';'));
    while (type.ends_with(' ') || type.ends_with('\t')) type.remove_suffix(1);
    return equalsIgnoringCase(type, "application/json");
}

bool isPrintable(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

}  // namespace

Endpoints::Endpoints(Parts parts) : parts_(std::move(parts)), unprovenBodies_(parts_.unprovenBodies) {}

std::optional<Reply> Endpoints::judge(const Request& head) {
    auto reply = refusal(head);
    if (reply) {
        parts_.metrics.count(endpointOf(head.path), reply->status);
        addCommonHeaders(*reply, head.origin);
    }
    return reply;
}

Reply Endpoints::crowded(const Request& head) {
    auto reply = errorReply(503, "Too many connections are open.");
    reply.headers.emplace_back("Retry-After", "1");
    parts_.metrics.count(endpointOf(head.path), reply.status);
    addCommonHeaders(reply, head.origin);
    return reply;
}

bool Endpoints::isForEveryPlace(const Request& head) {
    const Endpoint endpoint = endpointOf(head.path);
    return endpoint == Endpoint::Interrupt || endpoint == Endpoint::Health || endpoint == Endpoint::Ready ||
           endpoint == Endpoint::Metrics;
}

std::optional<Reply> Endpoints::refusal(const Request& head) const {
    if (isStopping_) return errorReply(503, "The server is stopping.");
    if (head.host.empty()) return errorReply(400, "A request has one Host header.");
    if (!parts_.access.isAllowedHost(head)) return errorReply(403, "That host is not this server.");
    if (!parts_.access.isAllowedOrigin(head)) return errorReply(403, "Pages of that origin are refused.");
    if (head.method == Method::Options && parts_.access.isForeignOrigin(head.origin)) return preflight();
    const Endpoint endpoint = endpointOf(head.path);
    // Clients of Bayeux may show the token in their handshake.
    if (endpoint != Endpoint::Health && endpoint != Endpoint::Bayeux &&
        !parts_.access.isAuthenticated(head)) {
        return unauthenticated(endpoint);
    }
    if (!isAllowedMethod(endpoint, head)) {
        if (endpoint == Endpoint::Console && head.path != "/")
            return errorReply(404, "There is no such path.");
        auto reply = errorReply(405, "The path does not take that method.");
        reply.headers.emplace_back("Allow", takesPost(endpoint) ? "POST" : "GET, HEAD");
        return reply;
    }
    return refusalOfBody(head);
}

std::optional<Reply> Endpoints::refusalOfBody(const Request& head) {
    if (head.clientType.size() > longestClientType || !isPrintable(head.clientType)) {
        return errorReply(400, "Connector-Client-Type is too long or no plain text.");
    }
    if (head.method != Method::Post) return std::nullopt;
    if (!isJson(head.contentType)) return errorReply(415, "The body has to be application/json.");
    if (!head.contentEncoding.empty() && !equalsIgnoringCase(head.contentEncoding, "identity")) {
        return errorReply(415, "The body must not be encoded.");
    }
    return std::nullopt;
}

Reply Endpoints::unauthenticated(Endpoint endpoint) {
    auto reply =
        endpoint == Endpoint::Console
            ? pageReply(401, "Numora Connector",
                        "Open the address that the server printed when it started: it holds the token.")
            : errorReply(401, "The token is missing or wrong.");
    reply.headers.emplace_back("WWW-Authenticate", "Bearer");
    return reply;
}

Reply Endpoints::preflight() {
    Reply reply{.status = 204, .contentType = {}};
    reply.headers = {
        {"Access-Control-Allow-Methods", "GET, HEAD, POST"},
        {"Access-Control-Allow-Headers",
         "Authorization, Connector-Client-Type, Content-Type, Pragma, X-Requested-With"},
        {"Access-Control-Max-Age", "600"},
    };
    return reply;
}

std::unique_ptr<bayeux::PendingPost> Endpoints::answer(const Request& request, Done done) {
    const Endpoint endpoint = endpointOf(request.path);
    auto finish = [this, endpoint, origin = request.origin, done = std::move(done),
                   begin = std::chrono::steady_clock::now()](Reply reply) {
        parts_.metrics.record(endpoint, reply.status, std::chrono::steady_clock::now() - begin);
        addCommonHeaders(reply, origin);
        done(std::move(reply));
    };
    if (endpoint == Endpoint::Bayeux) {
        const bayeux::Peer peer = peerOf(request);
        return parts_.bayeux.post(request.body, peer, [finish](bayeux::HttpAnswer answer) {
            finish({.status = answer.status, .body = std::move(answer.body)});
        });
    }
    if (endpoint == Endpoint::Messages) {
        submitEnvelope(parts_.dispatcher, request, finish);
    } else if (takesPost(endpoint)) {
        submitMessage(parts_.dispatcher, request.path.substr(1), request, finish);
    } else {
        finish(page(endpoint, request));
    }
    return nullptr;
}

bool Endpoints::isWebSocket(const Request& head) {
    return head.wantsWebSocket && endpointOf(head.path) == Endpoint::Bayeux;
}

std::unique_ptr<bayeux::Socket> Endpoints::open(const Request& upgrade, bayeux::SocketActions actions) {
    parts_.metrics.count(Endpoint::Bayeux, 101);
    return parts_.bayeux.open(peerOf(upgrade), std::move(actions));
}

Reply Endpoints::malformed(int status, std::string_view text) {
    parts_.metrics.count(Endpoint::Malformed, status);
    auto reply = errorReply(status, text);
    addCommonHeaders(reply, {});
    return reply;
}

Reply Endpoints::page(Endpoint endpoint, const Request& request) const {
    switch (endpoint) {
        case Endpoint::Health:
            return {.body = R"({"status":"ok"})"};
        case Endpoint::Ready:
            if (!parts_.isReady()) return errorReply(503, "The interpreter takes no requests.");
            return {.body = R"({"status":"ready"})"};
        case Endpoint::Metrics:
            return {.body = metricsPage(parts_.metrics, parts_.snapshot()),
                    .contentType = "text/plain;version=0.0.4;charset=utf-8"};
        default:
            return console(request);
    }
}

// The token that the first visit shows in its address goes out of it, and a key into a cookie.
Reply Endpoints::console(const Request& request) const {
    if (request.path != "/" || queryValue(request.query, "token").empty()) {
        return parts_.files.get(request.path);
    }
    auto reply = pageReply(303, "Numora Connector", "<a href=\"/\">The console</a>");
    reply.headers.emplace_back("Location", "/");
    if (parts_.access.isToken(queryValue(request.query, "token"))) {
        reply.headers.emplace_back("Set-Cookie", parts_.access.setCookie());
    }
    return reply;
}

bayeux::Peer Endpoints::peerOf(const Request& request) const {
    return {.address = request.peerAddress,
            .isAuthenticated = parts_.access.isAuthenticated(request),
            .clientType = request.clientType,
            .origin = request.origin};
}

void Endpoints::addCommonHeaders(Reply& reply, const std::string& origin) const {
    reply.headers.emplace_back("X-Content-Type-Options", "nosniff");
    if (reply.contentType.starts_with("application/json")) {
        reply.headers.emplace_back("Cache-Control", "no-store");
    }
    if (parts_.access.isForeignOrigin(origin)) {
        reply.headers.emplace_back("Access-Control-Allow-Origin", origin);
        reply.headers.emplace_back("Access-Control-Allow-Credentials", "true");
        reply.headers.emplace_back("Access-Control-Expose-Headers", "Connector-Dropped");
        reply.headers.emplace_back("Vary", "Origin");
    }
}

}  // namespace gateway::http
