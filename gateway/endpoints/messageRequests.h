#pragma once

#include <functional>
#include <string>

#include "HttpReply.h"
#include "HttpRequest.h"
#include "ports/InterpreterPort.h"

namespace gateway::endpoints {

/// Submits the message of type `typeName` that the request's body describes. `done` is called once, as
/// the port says, with the response's JSON object.
void submitMessage(ports::InterpreterPort& port, const std::string& typeName, const HttpRequest& request,
                   std::function<void(HttpReply)> done);

/// Submits what the body holds, `{"type": T, "message": {...}, "context": {...}}`, and answers in the same
/// form, with the context as it came. The context is optional; "clientType", a string, and
/// "numoraCapabilities", an array of strings, have a meaning.
void submitEnvelope(ports::InterpreterPort& port, const HttpRequest& request,
                    std::function<void(HttpReply)> done);

}  // namespace gateway::endpoints
