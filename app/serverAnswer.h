#pragma once

#include <stdexcept>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

#include "HttpClient.h"

namespace app {

inline constexpr const char* startedAnew =
    "the interpreter was started anew since the last request; what was before is lost";

/// The server does not do what it was asked for; what() says why.
class ServerRefusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Throws: InterpreterDied, when the answer refuses a request for the life of the interpreter that is over.
void requireSameLife(const HttpClient::Answer& answer);

/// The JSON value in an answer; empty when it is one without content.
/// Throws: InterpreterDied; ServerRefusal, when it is another error or no JSON.
Poco::Dynamic::Var valueIn(const HttpClient::Answer& answer);
/// The same where that must be a JSON object.
Poco::JSON::Object::Ptr objectFrom(const HttpClient::Answer& answer);

}  // namespace app
