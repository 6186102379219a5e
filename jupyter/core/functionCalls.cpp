#include "functionCalls.h"

#include <exception>
#include <utility>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "JsonMembers.h"
#include "connector/json/ObjectBuilder.h"
#include "connector/json/parse.h"
#include "connector/wireWords.h"

namespace jupyter {

namespace {

CallResult resultOf(const std::string& response) {
    const auto object = connector::json::parse(response).extract<Poco::JSON::Object::Ptr>();
    const auto faults = object->getArray("messageFaults");
    if (faults && !faults->empty()) {
        return {.problem = faults->getObject(0)->optValue<std::string>("message", "The call has failed.")};
    }
    if (object->optValue("isError", false)) return {.problem = "The call has failed."};
    return {.json = std::string(elementsOf(object->optValue<std::string>("results", "[null]"))),
            .problem = {}};
}

CallResult resultOf(int status, std::string text) {
    if (status != 200) return {.status = status, .problem = std::move(text)};
    try {
        return resultOf(text);
    } catch (const std::exception& error) {
        return {.status = 500,
                .problem = "The interpreter's answer cannot be read: " + std::string(error.what())};
    }
}

}  // namespace

void callFunction(Interpreter& interpreter, const FunctionCall& call,
                  std::function<void(const CallResult&)> answered) {
    connector::json::ObjectBuilder json;
    json.add("function", call.name).addJson("arguments", call.arguments).add("nargout", 1);
    json.add("dequeMode", call.dequeMode);
    if (call.timeoutMs > 0) json.add("timeoutMs", call.timeoutMs);
    if (!call.uuid.empty()) json.add("uuid", call.uuid);
    auto read = [answered = std::move(answered)](int status, std::string text) {
        answered(resultOf(status, std::move(text)));
    };
    if (call.isInTurn) {
        interpreter.callInTurn(connector::wire::type::feval, json.take(), std::move(read));
    } else {
        interpreter.call(connector::wire::type::feval, json.take(), std::move(read));
    }
}

}  // namespace jupyter
