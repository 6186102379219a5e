#include "bayeux/Evaluations.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include <Poco/JSON/Array.h>

#include "bayeux/replies.h"
#include "capabilities/capabilities.h"
#include "connector/common/ContextState.h"
#include "connector/common/RequestOrigin.h"
#include "connector/common/requests.h"
#include "connector/json/write.h"

namespace gateway::bayeux {

using connector::common::ClientRequests;
using connector::common::ContextScope;
using connector::common::ContextState;
using connector::common::RequestOrigin;
using connector::common::RequestRefusal;
using Poco::Dynamic::Var;

namespace {

[[noreturn]] void refuse(const std::string& member, const std::string& rule) {
    throw RequestRefusal{400, "ext.connector." + member + " must be " + rule};
}

std::optional<std::string> nameIn(const ClientMessage& message) {
    const Var value = message.ownExtension("request");
    if (value.isEmpty()) return std::nullopt;
    if (!value.isString() || !RequestOrigin::isName(value.extract<std::string>())) {
        refuse("request", "a string of 1 to " + std::to_string(RequestOrigin::longestName) +
                              " letters, digits and -_.:~");
    }
    return value.extract<std::string>();
}

bool isLossy(const ClientMessage& message) {
    const Var value = message.ownExtension("lossy");
    if (!value.isEmpty() && !value.isBoolean()) refuse("lossy", "true or false");
    return !value.isEmpty() && value.extract<bool>();
}

std::optional<std::uint64_t> promptIn(const ClientMessage& message) {
    const Var value = message.ownExtension("prompt");
    if (value.isEmpty()) return std::nullopt;
    if (!value.isInteger() || value.convert<std::int64_t>() < 0) refuse("prompt", "the number of a prompt");
    return value.convert<std::uint64_t>();
}

std::optional<capabilities::CapabilityList> capabilitiesIn(const ClientMessage& message) {
    const Var value = message.ownExtension("capabilities");
    if (value.isEmpty()) return std::nullopt;
    const auto isString = [](const Var& element) { return element.isString(); };
    const auto array = value.type() == typeid(Poco::JSON::Array::Ptr)
                           ? value.extract<Poco::JSON::Array::Ptr>()
                           : Poco::JSON::Array::Ptr();
    if (array.isNull() || !std::all_of(array->begin(), array->end(), isString)) {
        refuse("capabilities", "an array of strings");
    }
    capabilities::CapabilityList list;
    for (const Var& element : *array) list.push_back(element.extract<std::string>());
    return list;
}

}  // namespace

// What is set for what the request causes goes with it to the interpreter's thread.
std::shared_ptr<ContextState> Evaluations::contextOf(const ClientMessage& message) {
    auto context = std::make_shared<ContextState>();
    context->set(ClientRequests::contextKey, underWay_);
    if (const auto prompt = promptIn(message)) context->set(RequestOrigin::forPrompt, *prompt);
    if (const auto list = capabilitiesIn(message)) {
        context->set("numoraCapabilities", *list, ContextScope::Client);
    }
    RequestOrigin origin;
    if (!isLossy(message)) origin.pace = session_->pace();
    const auto name = nameIn(message);
    origin.request = name ? *name : RequestOrigin::newName();
    origin.reservation = names_->reserve(origin.request);
    if (!origin.reservation) {
        throw RequestRefusal{409,
                             "ext.connector.request must not be the name of a request that has not ended"};
    }
    RequestOrigin::set(*context, std::move(origin));
    return context;
}

std::string Evaluations::start(const ClientMessage& message) {
    const auto& channel = message.channel();
    if (underWay_->count() >= limit_) {
        return failed(message, errorText(429, channel, "too many evaluations are waiting"));
    }
    try {
        const auto context = contextOf(message);
        session_->publish(channel, connector::json::written(message.get("data")), context);
        const RequestRefusal refusal = context->getOr(RequestRefusal::contextKey, RequestRefusal());
        if (refusal.status != 0) throw refusal;
        const auto name = Members().add("request", RequestOrigin::of(*context)->request);
        return succeeded(message, Members().add("ext", Members().add("connector", name)));
    } catch (const RequestRefusal& refusal) {
        return failed(message, errorText(refusal.status, channel, refusal.reason));
    }
}

}  // namespace gateway::bayeux
