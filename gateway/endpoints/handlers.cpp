#include "endpoints/handlers.h"

#include <utility>

#include "connector/json/ObjectBuilder.h"
#include "endpoints/messageRequests.h"

namespace gateway::endpoints {

using Pending = std::unique_ptr<bayeux::PendingPost>;

namespace {

HttpReply statusReply(std::string_view status) {
    return {.body = connector::json::ObjectBuilder().add("status", status).take()};
}

}  // namespace

Pending answerMessage(const Services& services, const HttpRequest& request, Done done) {
    submitMessage(services.desk.port(), request.path.substr(1), request, std::move(done));
    return nullptr;
}

Pending answerEnvelope(const Services& services, const HttpRequest& request, Done done) {
    submitEnvelope(services.desk.port(), request, std::move(done));
    return nullptr;
}

Pending answerBayeux(const Services& services, const HttpRequest& request, Done done) {
    return services.desk.bayeux().post(request.body, peerOf(services, request),
                                       [done = std::move(done)](bayeux::HttpAnswer answer) {
                                           done({.status = answer.status, .body = std::move(answer.body)});
                                       });
}

Pending answerHealth(const Services&, const HttpRequest&, Done done) {
    done(statusReply("ok"));
    return nullptr;
}

Pending answerReadiness(const Services& services, const HttpRequest&, Done done) {
    done(services.desk.port().isReady() ? statusReply("ready")
                                        : errorReply(503, "The interpreter is not ready."));
    return nullptr;
}

Pending answerMetrics(const Services& services, const HttpRequest&, Done done) {
    done({.body = metricsPage(services.metrics, services.snapshot()),
          .contentType = "text/plain;version=0.0.4;charset=utf-8"});
    return nullptr;
}

// The token that the first visit shows in its address goes out of it, and a key into a cookie.
Pending answerHome(const Services& services, const HttpRequest& request, Done done) {
    const std::string token = queryValue(request.query, "token");
    if (token.empty()) return answerFile(services, request, std::move(done));
    auto reply = pageReply(303, "Numora Connector", "<a href=\"/\">The console</a>");
    reply.headers.emplace_back("Location", "/");
    if (services.access.isToken(token)) {
        reply.headers.emplace_back("Set-Cookie", services.access.setCookie());
    }
    done(std::move(reply));
    return nullptr;
}

Pending answerFile(const Services& services, const HttpRequest& request, Done done) {
    done(services.files.get(request.path));
    return nullptr;
}

}  // namespace gateway::endpoints
