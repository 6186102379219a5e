#pragma once

#include <functional>
#include <string>

#include "HttpReply.h"
#include "HttpRequest.h"
#include "dispatch/RequestDispatcher.h"

namespace gateway::endpoints {

/// Submits the message of type `typeName` that the request's body describes. `done` is called once, as
/// dispatch::RequestDispatcher says, with the response's JSON object.
void submitMessage(dispatch::RequestDispatcher& dispatcher, const std::string& typeName,
                   const HttpRequest& request, std::function<void(HttpReply)> done);

/// Submits what the body holds, `{"type": T, "message": {...}, "context": {...}}`, and answers in the same
/// form, with the context as it came. The context is optional; "clientType", a string, and
/// "numoraCapabilities", an array of strings, have a meaning.
void submitEnvelope(dispatch::RequestDispatcher& dispatcher, const HttpRequest& request,
                    std::function<void(HttpReply)> done);

}  // namespace gateway::endpoints
