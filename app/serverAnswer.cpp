#include "serverAnswer.h"

#include <string>

#include <Poco/JSON/Object.h>

#include "connector/json/parse.h"

namespace app {

Poco::Dynamic::Var valueIn(const HttpClient::Answer& answer) {
    const bool isGood = answer.status == 200;
    std::string reason = "the server answered with status " + std::to_string(answer.status);
    try {
        const auto value = connector::json::parse(answer.body);
        if (isGood) return value;
        if (value.type() == typeid(Poco::JSON::Object::Ptr)) {
            reason += ": " + value.extract<Poco::JSON::Object::Ptr>()->optValue<std::string>("error", "");
        }
    } catch (const connector::json::ParseError& error) {
        if (isGood) reason = std::string("the server's answer must be JSON: ") + error.what();
    }
    throw ServerRefusal(reason);
}

}  // namespace app
