#include "http/messageRequests.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "capabilities/CapabilityList.h"
#include "connector/common/ContextState.h"
#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "connector/json/write.h"

namespace gateway::http {

namespace {

using connector::common::ContextScope;
using connector::common::ContextState;
using Poco::Dynamic::Var;
using Poco::JSON::Object;

/// A body that is not as it has to be; the client is told the text.
class BadBody : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

Object::Ptr objectFrom(const std::string& body) {
    const Var value = connector::json::parse(body);
    if (value.type() != typeid(Object::Ptr)) throw BadBody("The body is no JSON object.");
    return value.extract<Object::Ptr>();
}

std::shared_ptr<ContextState> contextOf(const Request& request) {
    auto context = std::make_shared<ContextState>();
    if (!request.clientType.empty()) context->set("clientType", request.clientType, ContextScope::Client);
    return context;
}

void addCapabilities(ContextState& context, const Var& value) {
    if (value.type() != typeid(Poco::JSON::Array::Ptr)) throw BadBody("\"numoraCapabilities\" is no array.");
    capabilities::CapabilityList capabilities;
    for (const Var& capability : *value.extract<Poco::JSON::Array::Ptr>()) {
        if (!capability.isString()) throw BadBody("A capability is no text.");
        capabilities.push_back(capability.extract<std::string>());
    }
    context.set("numoraCapabilities", capabilities, ContextScope::Client);
}

void addContext(ContextState& context, const Object& values) {
    const Var clientType = values.get("clientType");
    if (!clientType.isEmpty()) {
        if (!clientType.isString()) throw BadBody("\"clientType\" is no text.");
        context.set("clientType", clientType.extract<std::string>(), ContextScope::Client);
    }
    if (values.has("numoraCapabilities")) addCapabilities(context, values.get("numoraCapabilities"));
}

Reply replyFrom(Answer answer) {
    Reply reply{.status = answer.status, .body = std::move(answer.json)};
    if (answer.retrySeconds > 0) {
        reply.headers.emplace_back("Retry-After", std::to_string(answer.retrySeconds));
    }
    return reply;
}

// What is wrong with a body becomes the reply.
template <class Action>
void refusingBadBodies(const std::function<void(Reply)>& done, Action action) {
    std::string problem;
    try {
        return action();
    } catch (const connector::json::ParseError& error) {
        problem = error.what();
    } catch (const BadBody& error) {
        problem = error.what();
    }
    done(errorReply(400, problem));
}

}  // namespace

void submitMessage(RequestDispatcher& dispatcher, const std::string& typeName, const Request& request,
                   std::function<void(Reply)> done) {
    refusingBadBodies(done, [&] {
        dispatcher.submit(typeName, objectFrom(request.body), contextOf(request),
                          [done](Answer answer) { done(replyFrom(std::move(answer))); });
    });
}

void submitEnvelope(RequestDispatcher& dispatcher, const Request& request, std::function<void(Reply)> done) {
    refusingBadBodies(done, [&] {
        const Object::Ptr envelope = objectFrom(request.body);
        const Var type = envelope->get("type");
        if (!type.isString()) throw BadBody("\"type\" is no text.");
        const Object::Ptr message = envelope->getObject("message");
        if (!message) throw BadBody("\"message\" is no object.");
        const auto context = contextOf(request);
        std::string contextMember;
        if (envelope->has("context")) {
            const Object::Ptr values = envelope->getObject("context");
            if (!values) throw BadBody("\"context\" is no object.");
            addContext(*context, *values);
            contextMember = ",\"context\":" + connector::json::written(values);
        }
        dispatcher.submit(type.extract<std::string>(), message, context,
                          [done, contextMember](Answer answer) {
                              if (answer.status == 200) {
                                  answer.json = "{\"type\":" + connector::json::quoted(answer.type) +
                                                ",\"message\":" + answer.json + contextMember + "}";
                              }
                              done(replyFrom(std::move(answer)));
                          });
    });
}

}  // namespace gateway::http
