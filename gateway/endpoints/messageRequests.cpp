#include "endpoints/messageRequests.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <Poco/JSON/Object.h>

#include "access/clientType.h"
#include "capabilities/capabilities.h"
#include "connector/common/ContextState.h"
#include "connector/json/ObjectBuilder.h"
#include "connector/json/parse.h"
#include "connector/json/write.h"
#include "dispatch/members.h"

namespace gateway::endpoints {

namespace {

using connector::common::ContextScope;
using connector::common::ContextState;
using connector::json::ObjectBuilder;
using connector::json::Text;
using Poco::JSON::Object;

using dispatch::BadMessage;
using Kind = dispatch::Member::Kind;

constexpr dispatch::Member envelopeMembers[] = {
    {"type", Kind::String, true}, {"message", Kind::Object, true}, {"context", Kind::Object}};
// The rest is the client's own, and goes back to it.
constexpr dispatch::Member contextMembers[] = {{"clientType", Kind::String},
                                               {"numoraCapabilities", Kind::Strings}};

/// The object in an envelope; its message stays text.
Object::Ptr objectFrom(const std::string& body) {
    constexpr std::size_t mostValues = 20'000;
    const auto value = connector::json::parse(body, connector::json::deepestNesting, mostValues, "message");
    if (value.type() != typeid(Object::Ptr)) throw BadMessage("The body must be a JSON object.");
    return value.extract<Object::Ptr>();
}

std::shared_ptr<ContextState> contextOf(const HttpRequest& request) {
    auto context = std::make_shared<ContextState>();
    if (!request.clientType.empty()) context->set("clientType", request.clientType, ContextScope::Client);
    if (const auto life = request.wantedLife()) context->set(ports::InterpreterPort::wantedLife, *life);
    return context;
}

void addContext(ContextState& context, const Object& values) {
    std::vector<std::string> unknown;
    dispatch::checkMembers(contextMembers, values, "context.", unknown);
    if (values.has("clientType")) {
        const auto text = values.getValue<std::string>("clientType");
        if (!access::isClientType(text))
            throw BadMessage("context.clientType must be at most 128 printable ASCII characters");
        context.set("clientType", text, ContextScope::Client);
    }
    if (!values.has("numoraCapabilities")) return;
    const capabilities::CapabilityList list = dispatch::stringsIn(values, "numoraCapabilities");
    context.set("numoraCapabilities", list, ContextScope::Client);
}

struct Envelope {
    std::string typeName;
    ports::InterpreterPort::Json message;
};

Envelope readEnvelope(const std::string& body, ContextState& context, std::string& contextJson) {
    const Object::Ptr envelope = objectFrom(body);
    std::vector<std::string> unknown;
    dispatch::checkMembers(envelopeMembers, *envelope, "", unknown);
    dispatch::warnOfUnknown("/messages", unknown);
    if (const Object::Ptr values = envelope->getObject("context")) {
        addContext(context, *values);
        contextJson = connector::json::written(values);
    }
    return {envelope->getValue<std::string>("type"), envelope->get("message").extract<Text>().json};
}

}  // namespace

void submitMessage(ports::InterpreterPort& port, const std::string& typeName, const HttpRequest& request,
                   std::function<void(HttpReply)> done) {
    port.submit(typeName, std::make_shared<const std::string>(request.body), contextOf(request),
                [done = std::move(done)](dispatch::Answer answer) { done(replyFrom(std::move(answer))); });
}

void submitEnvelope(ports::InterpreterPort& port, const HttpRequest& request,
                    std::function<void(HttpReply)> done) {
    const auto context = contextOf(request);
    std::string contextJson;
    Envelope envelope;
    try {
        envelope = readEnvelope(request.body, *context, contextJson);
    } catch (const std::runtime_error& error) {
        return done(errorReply(400, error.what()));
    }
    const auto answered = [done = std::move(done), contextJson](dispatch::Answer answer) {
        if (answer.status == 200) {
            ObjectBuilder reply;
            reply.add("type", answer.type).addJson("message", answer.json);
            if (!contextJson.empty()) reply.addJson("context", contextJson);
            if (answer.isDropped) reply.addJson("ext", R"({"connector":{"dropped":true}})");
            answer.json = reply.take();
        }
        done(replyFrom(std::move(answer)));
    };
    port.submit(envelope.typeName, envelope.message, context, answered);
}

}  // namespace gateway::endpoints
