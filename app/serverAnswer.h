#pragma once

#include <stdexcept>

#include <Poco/Dynamic/Var.h>

#include "HttpClient.h"

namespace app {

/// The server does not do what it was asked for; what() says why.
class ServerRefusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The JSON value in an answer; empty when it is one without content.
/// Throws: InterpreterDied; ServerRefusal, when it is another error or no JSON.
Poco::Dynamic::Var valueIn(const HttpClient::Answer& answer);

}  // namespace app
