#include "bayeux/handshake.h"

#include <algorithm>
#include <chrono>

#include <Poco/JSON/Array.h>

#include "access/clientType.h"
#include "bayeux/Core.h"
#include "bayeux/Exchange.h"
#include "bayeux/Session.h"
#include "bayeux/replies.h"

namespace gateway::bayeux {

using namespace std::chrono_literals;
using Poco::Dynamic::Var;
using Poco::JSON::Array;

namespace {

bool hasToken(const Request& request, const ServerOptions& options) {
    const auto token = textOf(request.ownExtension("token"));
    return options.isToken && !token.empty() && options.isToken(token);
}

bool sharesConnectionType(const Request& request) {
    const Var types = request.get("supportedConnectionTypes");
    if (types.type() != typeid(Array::Ptr)) return false;
    const auto& names = *types.extract<Array::Ptr>();
    return std::any_of(names.begin(), names.end(),
                       [](const Var& name) { return isConnectionType(textOf(name)); });
}

bool wantsAcknowledgements(const Request& request) {
    const Var wish = request.extension("ack");
    if (wish.type() == typeid(bool)) return wish.extract<bool>();
    const auto object = objectOf(wish);
    if (object.isNull()) return false;
    const Var isEnabled = object->get("enabled");
    return isEnabled.type() == typeid(bool) && isEnabled.extract<bool>();
}

/// The reply to one that is refused; empty for the others.
std::string refusal(Core& core, const Request& request, const Peer& peer, bool isKnown) {
    // Those without the token have an allowance of their own, or they would use up that of the others.
    if (!core.sessions.mayHandshake(peer.address, isKnown, core.options.now())) {
        return failed(request, errorText(429, "too many handshakes"), core.advice.retry(1s));
    }
    if (!isKnown) {
        return failed(request, errorText(401, "the token is missing or wrong"), core.advice.none());
    }
    if (!request.text("version").starts_with("1.")) {
        return failed(request, errorText(400, "the version must be 1.0"), core.advice.none());
    }
    if (!sharesConnectionType(request)) {
        return failed(request, errorText(301, "no common connection type"), core.advice.none());
    }
    return "";
}

}  // namespace

bool isConnectionType(const std::string& name) { return name == "websocket" || name == "long-polling"; }

std::string answerHandshake(const std::shared_ptr<Core>& core, const Request& request, Exchange& exchange) {
    Peer peer = exchange.peer();
    const bool isKnown = peer.isAuthenticated || hasToken(request, core->options);
    if (isKnown) exchange.trust();
    if (auto reply = refusal(*core, request, peer, isKnown); !reply.empty()) return reply;
    // Browsers set no headers on WebSockets.
    if (peer.clientType.empty()) peer.clientType = textOf(request.ownExtension("clientType"));
    if (!access::isClientType(peer.clientType)) {
        return failed(request, errorText(400, "the client type is too long or no plain text"),
                      core->advice.none());
    }
    const bool isAcknowledged = wantsAcknowledgements(request);
    const auto session = Session::open(core, peer, isAcknowledged, exchange.connection());
    if (!session) {
        return failed(request, errorText(429, "too many sessions"), core->advice.retry(10s));
    }
    const std::string members = R"(,"version":"1.0","clientId":")" + session->id() +
                                R"(","supportedConnectionTypes":["websocket","long-polling"])" +
                                core->advice.retry() + (isAcknowledged ? R"(,"ext":{"ack":true})" : "");
    return succeeded(request, members);
}

}  // namespace gateway::bayeux
