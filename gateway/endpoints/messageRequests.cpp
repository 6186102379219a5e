#include "endpoints/messageRequests.h"

#include <memory>
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
#include "dispatch/readMessage.h"

namespace gateway::endpoints {

namespace {

using connector::common::ContextScope;
using connector::common::ContextState;
using connector::json::ObjectBuilder;
using Poco::JSON::Object;

using dispatch::BadMessage;
using Kind = dispatch::Member::Kind;

constexpr dispatch::Member envelopeMembers[] = {
    {"type", Kind::String, true}, {"message", Kind::Object, true}, {"context", Kind::Object}};
// The rest is the client's own, and goes back to it.
constexpr dispatch::Member contextMembers[] = {{"clientType", Kind::String},
                                               {"numoraCapabilities", Kind::Strings}};

Object::Ptr objectFrom(const std::string& body) {
    Object::Ptr object = dispatch::readMessage(body);
    if (!object) throw BadMessage("The body must be a JSON object.");
    return object;
}

std::shared_ptr<ContextState> contextOf(const HttpRequest& request) {
    auto context = std::make_shared<ContextState>();
    if (!request.clientType.empty()) context->set("clientType", request.clientType, ContextScope::Client);
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

dispatch::RequestDispatcher::Read readEnvelope(const std::string& body, ContextState& context,
                                               std::string& contextJson) {
    const Object::Ptr envelope = objectFrom(body);
    std::vector<std::string> unknown;
    dispatch::checkMembers(envelopeMembers, *envelope, "", unknown);
    dispatch::warnOfUnknown("/messages", unknown);
    if (const Object::Ptr values = envelope->getObject("context")) {
        addContext(context, *values);
        contextJson = connector::json::written(values);
    }
    return {envelope->getValue<std::string>("type"), envelope->getObject("message")};
}

HttpReply replyFrom(dispatch::Answer answer) {
    HttpReply reply{.status = answer.status, .body = std::move(answer.json)};
    if (answer.retrySeconds > 0) {
        reply.headers.emplace_back("Retry-After", std::to_string(answer.retrySeconds));
    }
    if (answer.isDropped) reply.headers.emplace_back("Connector-Dropped", "true");
    return reply;
}

// What is wrong with a body becomes the reply.
template <class Action>
void refusingBadBodies(const std::function<void(HttpReply)>& done, Action action) {
    std::string problem;
    try {
        return action();
    } catch (const connector::json::ParseError& error) {
        problem = error.what();
    } catch (const BadMessage& error) {
        problem = error.what();
    }
    done(errorReply(400, problem));
}

}  // namespace

void submitMessage(dispatch::RequestDispatcher& dispatcher, const std::string& typeName,
                   const HttpRequest& request, std::function<void(HttpReply)> done) {
    const auto context = contextOf(request);
    const auto answered = [done](dispatch::Answer answer) { done(replyFrom(std::move(answer))); };
    if (request.body.size() > dispatch::largeBody) {
        const auto read = [typeName, body = request.body] {
            return dispatch::RequestDispatcher::Read{typeName, objectFrom(body)};
        };
        return dispatcher.submitUnread(request.body.size(), read, context, answered);
    }
    refusingBadBodies(done,
                      [&] { dispatcher.submit(typeName, objectFrom(request.body), context, answered); });
}

void submitEnvelope(dispatch::RequestDispatcher& dispatcher, const HttpRequest& request,
                    std::function<void(HttpReply)> done) {
    const auto context = contextOf(request);
    const auto contextJson = std::make_shared<std::string>();
    const auto answered = [done, contextJson](dispatch::Answer answer) {
        if (answer.status == 200) {
            ObjectBuilder reply;
            reply.add("type", answer.type).addJson("message", answer.json);
            if (!contextJson->empty()) reply.addJson("context", *contextJson);
            if (answer.isDropped) reply.addJson("ext", R"({"connector":{"dropped":true}})");
            answer.json = reply.take();
        }
        done(replyFrom(std::move(answer)));
    };
    if (request.body.size() > dispatch::largeBody) {
        const auto read = [body = request.body, context, contextJson] {
            return readEnvelope(body, *context, *contextJson);
        };
        return dispatcher.submitUnread(request.body.size(), read, context, answered);
    }
    refusingBadBodies(done, [&] {
        auto read = readEnvelope(request.body, *context, *contextJson);
        dispatcher.submit(read.typeName, std::move(read.message), context, answered);
    });
}

}  // namespace gateway::endpoints
