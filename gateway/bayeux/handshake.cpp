#include "bayeux/handshake.h"

#include <algorithm>
#include <chrono>

#include <Poco/JSON/Array.h>

#include "access/clientType.h"
#include "bayeux/Exchange.h"
#include "bayeux/SessionTable.h"
#include "bayeux/replies.h"

namespace gateway::bayeux {

using namespace std::chrono_literals;
using Poco::Dynamic::Var;
using Poco::JSON::Array;

namespace {

constexpr dispatch::Member ownMembers[] = {{"token", dispatch::Member::Kind::String},
                                           {"clientType", dispatch::Member::Kind::String}};

using TokenCheck = ServerOptions::TokenCheck;

TokenCheck checkToken(const ClientMessage& message, const Peer& peer, const ServerOptions& options) {
    if (peer.isAuthenticated && (!options.isCurrent || options.isCurrent(peer.grant)))
        return TokenCheck::Right;
    const auto token = textOf(message.ownExtension("token"));
    return options.checkToken && !token.empty() ? options.checkToken(token) : TokenCheck::Wrong;
}

bool sharesConnectionType(const ClientMessage& message) {
    const Var types = message.get("supportedConnectionTypes");
    if (types.type() != typeid(Array::Ptr)) return false;
    const auto& names = *types.extract<Array::Ptr>();
    return std::any_of(names.begin(), names.end(),
                       [](const Var& name) { return isConnectionType(textOf(name)); });
}

bool wantsAcknowledgements(const ClientMessage& message) {
    const Var wish = message.extension("ack");
    if (wish.type() == typeid(bool)) return wish.extract<bool>();
    const auto object = objectOf(wish);
    if (object.isNull()) return false;
    const Var isEnabled = object->get("enabled");
    return isEnabled.type() == typeid(bool) && isEnabled.extract<bool>();
}

/// The reply to one that is refused; empty for the others.
std::string refusal(SessionTable& sessions, const ClientMessage& message, const Peer& peer,
                    TokenCheck token) {
    const auto& core = *sessions.core();
    // Those without the token have an allowance of their own, or they would use up that of the others.
    if (!sessions.mayHandshake(peer.address, token == TokenCheck::Right, core.options.now())) {
        return failed(message, errorText(429, "too many handshakes"), core.advice.retry(1s));
    }
    if (token != TokenCheck::Right && core.options.refused) core.options.refused(token, peer.address);
    if (token == TokenCheck::Wrong) {
        return failed(message, errorText(401, "the token is missing or wrong"), core.advice.none());
    }
    if (token == TokenCheck::NotAllowed) {
        return failed(message, errorText(403, "the token may not use the interpreter"), core.advice.none());
    }
    if (!message.text("version").starts_with("1.")) {
        return failed(message, errorText(400, "the version must be 1.0"), core.advice.none());
    }
    if (!sharesConnectionType(message)) {
        return failed(message, errorText(301, "no common connection type"), core.advice.none());
    }
    return "";
}

}  // namespace

std::string answerHandshake(SessionTable& sessions, const ClientMessage& message, Exchange& exchange) {
    const auto& core = sessions.core();
    Peer peer = exchange.peer();
    const auto token = checkToken(message, peer, core->options);
    if (token == TokenCheck::Right) exchange.trust();
    if (auto reply = refusal(sessions, message, peer, token); !reply.empty()) return reply;
    try {
        message.checkOwnExtensions(ownMembers);
    } catch (const dispatch::BadMessage& problem) {
        return failed(message, errorText(400, problem.what()), core->advice.none());
    }
    // Browsers set no headers on WebSockets.
    if (peer.clientType.empty()) peer.clientType = textOf(message.ownExtension("clientType"));
    if (!access::isClientType(peer.clientType)) {
        return failed(message,
                      errorText(400, "the client type must be at most 128 printable ASCII characters"),
                      core->advice.none());
    }
    const bool isAcknowledged = wantsAcknowledgements(message);
    const auto session = sessions.open(peer, isAcknowledged, exchange.socket());
    if (!session) {
        return failed(message, errorText(429, "too many sessions"), core->advice.retry(10s));
    }
    Members members;
    members.add("version", "1.0")
        .add("clientId", session->id())
        .addJson("supportedConnectionTypes", R"(["websocket","long-polling"])")
        .addMembers(core->advice.retry());
    Members extensions;
    extensions.add("connector", Members().add("server", core->name));
    if (isAcknowledged) extensions.add("ack", true);
    members.add("ext", extensions);
    return succeeded(message, members);
}

}  // namespace gateway::bayeux
