#include "bayeux/Evaluations.h"

#include <cstdint>

#include "bayeux/replies.h"
#include "capabilities/capabilities.h"
#include "connector/common/ContextState.h"
#include "connector/common/RequestOrigin.h"
#include "connector/common/requests.h"
#include "connector/json/write.h"
#include "dispatch/members.h"
#include "ports/InterpreterPort.h"

namespace gateway::bayeux {

using connector::common::ClientRequests;
using connector::common::ContextScope;
using connector::common::ContextState;
using connector::common::RequestOrigin;
using connector::common::RequestRefusal;
using Poco::Dynamic::Var;

namespace {

using Kind = dispatch::Member::Kind;
constexpr dispatch::Member ownMembers[] = {
    {"request", Kind::String},
    {"lossy", Kind::Boolean},
    {.name = "life", .kind = Kind::Integer, .most = dispatch::unlimited},
    {.name = "prompt", .kind = Kind::Integer, .most = dispatch::unlimited},
    {"capabilities", Kind::Strings}};

std::string nameIn(const ClientMessage& message) {
    const Var value = message.ownExtension("request");
    if (value.isEmpty()) return RequestOrigin::newName();
    auto name = value.extract<std::string>();
    if (RequestOrigin::isName(name)) return name;
    throw RequestRefusal{400, "ext.connector.request must be a string of 1 to " +
                                  std::to_string(RequestOrigin::longestName) + " letters, digits and -_.:~"};
}

}  // namespace

// What is set for what the request causes goes with it to the interpreter's thread.
std::shared_ptr<ContextState> Evaluations::contextOf(const ClientMessage& message) {
    message.checkOwnExtensions(ownMembers);
    auto context = std::make_shared<ContextState>();
    context->set(ClientRequests::contextKey, underWay_);
    if (const auto life = message.life()) context->set(ports::InterpreterPort::wantedLife, *life);
    if (const auto prompt = numberOf(message.ownExtension("prompt"))) {
        context->set(RequestOrigin::forPrompt, static_cast<std::uint64_t>(*prompt));
    }
    if (const auto own = objectOf(message.extension("connector")); own && own->has("capabilities")) {
        const capabilities::CapabilityList list = dispatch::stringsIn(*own, "capabilities");
        context->set("numoraCapabilities", list, ContextScope::Client);
    }
    RequestOrigin origin;
    const Var isLossy = message.ownExtension("lossy");
    if (isLossy.isEmpty() || !isLossy.extract<bool>()) origin.pace = session_->pace();
    origin.request = nameIn(message);
    origin.reservation = port_.names()->reserve(origin.request);
    if (!origin.reservation) {
        throw RequestRefusal{409,
                             "ext.connector.request must not be the name of a request that has not ended"};
    }
    RequestOrigin::set(*context, std::move(origin));
    return context;
}

void Evaluations::start(const ClientMessage& message, const std::function<void(std::string)>& replied) {
    const auto& channel = message.channel();
    if (underWay_->count() >= limit_) {
        return replied(failed(message, errorText(429, channel, "too many evaluations are waiting")));
    }
    const auto refuse = [&](int status, const std::string& reason) {
        replied(failed(message, errorText(status, channel, reason)));
    };
    std::shared_ptr<ContextState> context;
    try {
        context = contextOf(message);
    } catch (const dispatch::BadMessage& problem) {
        return refuse(400, problem.what());
    } catch (const RequestRefusal& refusal) {
        return refuse(refusal.status, refusal.reason);
    }
    const auto taken = [message, replied,
                        name = RequestOrigin::of(*context)->request](const RequestRefusal& refusal) {
        if (refusal.status != 0) {
            return replied(failed(message, errorText(refusal.status, message.channel(), refusal.reason)));
        }
        const auto request = Members().add("request", name);
        replied(succeeded(message, Members().add("ext", Members().add("connector", request))));
    };
    port_.stream(*session_, channel, connector::json::written(message.get("data")), context, taken);
}

}  // namespace gateway::bayeux
