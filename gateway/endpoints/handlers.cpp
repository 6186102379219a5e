#include "endpoints/handlers.h"

#include <utility>

#include "connector/json/ObjectBuilder.h"
#include "endpoints/Route.h"
#include "endpoints/messageRequests.h"
#include "interpreters/Api.h"

namespace gateway::endpoints {

using Pending = std::unique_ptr<bayeux::PendingPost>;

namespace {

HttpReply statusReply(std::string_view status) {
    return {.body = connector::json::ObjectBuilder().add("status", status).take()};
}

}  // namespace

Pending answerMessage(const Services&, const HttpRequest& request, Done done) {
    submitMessage(request.desk->port(), request.path.substr(1), request, std::move(done));
    return nullptr;
}

Pending answerEnvelope(const Services&, const HttpRequest& request, Done done) {
    submitEnvelope(request.desk->port(), request, std::move(done));
    return nullptr;
}

Pending answerBayeux(const Services&, const HttpRequest& request, Done done) {
    return request.desk->bayeux().post(request.body, peerOf(request),
                                       [done = std::move(done)](bayeux::HttpAnswer answer) {
                                           done({.status = answer.status, .body = std::move(answer.body)});
                                       });
}

Pending answerInterpreters(const Services& services, const HttpRequest& request, Done done) {
    done(request.method == HttpMethod::Post
             ? interpreters::create(services.interpreters, *request.grant, request.body, services.checkVenv)
             : interpreters::list(services.interpreters, *request.grant));
    return nullptr;
}

Pending answerInterpreter(const Services& services, const HttpRequest& request, Done done) {
    if (request.method == HttpMethod::Delete) {
        interpreters::remove(services.interpreters, request.interpreter, std::move(done));
    } else {
        done(interpreters::describe(*request.desk));
    }
    return nullptr;
}

Pending answerRestart(const Services&, const HttpRequest& request, Done done) {
    interpreters::restart(request.desk, request.body, std::move(done));
    return nullptr;
}

Pending answerDeaths(const Services&, const HttpRequest& request, Done done) {
    done(interpreters::deaths(*request.desk));
    return nullptr;
}

Pending answerHealth(const Services&, const HttpRequest&, Done done) {
    done(statusReply("ok"));
    return nullptr;
}

Pending answerReadiness(const Services&, const HttpRequest& request, Done done) {
    const auto& port = request.desk->port();
    if (port.isReady()) {
        done(statusReply("ready"));
        return nullptr;
    }
    // Why it does not come back is for those who may use it.
    const auto deaths =
        request.grant && port.state().state == "failed" ? port.deaths() : decltype(port.deaths())();
    done(errorReply(503, deaths.empty() ? "The interpreter is not ready." : deaths.front().sentence()));
    return nullptr;
}

Pending answerMetrics(const Services& services, const HttpRequest&, Done done) {
    done({.body = metricsPage(services.metrics, services.snapshot()),
          .contentType = "text/plain;version=0.0.4;charset=utf-8"});
    return nullptr;
}

// The token that the first visit shows in its address goes out of it, and a key into a cookie. The way there
// is relative, because a proxy may have shortened the path. The page itself leads on: after a redirection
// that a link of another site has begun, browsers would not show the cookie.
Pending answerHome(const Services& services, const HttpRequest& request, Done done) {
    const std::string token = queryValue(request.query, "token");
    const bool isFolder = !request.path.empty();
    if (token.empty() && isFolder) return answerFile(services, request, std::move(done));
    const std::string home =
        isFolder ? "./" : services.basePath.substr(services.basePath.rfind('/') + 1) + "/";
    auto reply =
        pageReply(token.empty() ? 303 : 200, "Numora Connector", "<a href=\"" + home + "\">The console</a>");
    reply.headers.emplace_back(token.empty() ? "Location" : "Refresh",
                               token.empty() ? home : "0;url=" + home);
    if (const auto grant = services.access.grantOf(token)) {
        auto cookie = services.access.setCookie(*grant, request);
        if (!cookie.empty()) reply.headers.emplace_back("Set-Cookie", std::move(cookie));
    }
    done(std::move(reply));
    return nullptr;
}

Pending answerNoSuchPath(const Services&, const HttpRequest&, Done done) {
    done(errorReply(404, "There is no such path."));
    return nullptr;
}

jupyter::Ask askOf(const Services& services, const HttpRequest& request) {
    return {.method = request.method,
            .parameter = std::string(request.route->parameterIn(request.path)),
            .body = request.body,
            .root = services.basePath + request.prefix,
            .grant = request.grant,
            .desk = request.desk,
            .interpreters = services.interpreters,
            .sessions = services.sessions,
            .checkVenv = services.checkVenv,
            .canMake = services.canMakeInterpreters};
}

Pending answerFile(const Services& services, const HttpRequest& request, Done done) {
    done(services.files.get(request.path,
                            {.acceptEncoding = request.acceptEncoding, .ifNoneMatch = request.ifNoneMatch}));
    return nullptr;
}

}  // namespace gateway::endpoints
