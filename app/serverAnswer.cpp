#include "serverAnswer.h"

#include <string>

#include "Session.h"
#include "connector/json/parse.h"

namespace app {

void requireSameLife(const HttpClient::Answer& answer) {
    constexpr int conflict = 409;
    if (answer.status == conflict) throw InterpreterDied(startedAnew);
}

// The server's own answers are JSON.
bool isOfProxy(int status) { return status >= 502 && status <= 504; }

Poco::Dynamic::Var valueIn(const HttpClient::Answer& answer) {
    const bool isGood = answer.status >= 200 && answer.status < 300;
    if (answer.status == 204) return {};
    std::string reason = "the server answered with status " + std::to_string(answer.status);
    try {
        const auto value = connector::json::parse(answer.body);
        if (isGood) return value;
        if (value.type() == typeid(Poco::JSON::Object::Ptr)) {
            const auto object = value.extract<Poco::JSON::Object::Ptr>();
            const auto error =
                object->optValue<std::string>("error", object->optValue<std::string>("message", ""));
            if (object->isObject("death")) throw InterpreterDied(error);
            reason += ": " + error;
        }
    } catch (const connector::json::ParseError& error) {
        if (isGood) reason = std::string("the server's answer must be JSON: ") + error.what();
        if (isOfProxy(answer.status)) reason += ": a proxy says so, and the server after it may not run";
    }
    throw ServerRefusal(reason);
}

Poco::JSON::Object::Ptr objectFrom(const HttpClient::Answer& answer) {
    const auto value = valueIn(answer);
    if (value.type() != typeid(Poco::JSON::Object::Ptr))
        throw ServerRefusal("the server's answer must be a JSON object");
    return value.extract<Poco::JSON::Object::Ptr>();
}

}  // namespace app
