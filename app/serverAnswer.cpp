#include "serverAnswer.h"

#include <string>

#include <Poco/JSON/Object.h>

#include "Session.h"
#include "connector/json/parse.h"

namespace app {

Poco::Dynamic::Var valueIn(const HttpClient::Answer& answer) {
    const bool isGood = answer.status >= 200 && answer.status < 300;
    if (answer.status == 204) return {};
    std::string reason = "the server answered with status " + std::to_string(answer.status);
    try {
        const auto value = connector::json::parse(answer.body);
        if (isGood) return value;
        if (value.type() == typeid(Poco::JSON::Object::Ptr)) {
            const auto object = value.extract<Poco::JSON::Object::Ptr>();
            const auto error = object->optValue<std::string>("error", "");
            if (object->isObject("death")) throw InterpreterDied(error);
            reason += ": " + error;
        }
    } catch (const connector::json::ParseError& error) {
        if (isGood) reason = std::string("the server's answer must be JSON: ") + error.what();
    }
    throw ServerRefusal(reason);
}

}  // namespace app
