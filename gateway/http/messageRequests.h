#pragma once

#include <functional>
#include <string>

#include "dispatch/RequestDispatcher.h"
#include "http/Request.h"

namespace gateway::http {

/// Submits the message of type `typeName` that the request's body describes. `done` is called once, as
/// dispatch::RequestDispatcher says, with the response's JSON object.
void submitMessage(dispatch::RequestDispatcher& dispatcher, const std::string& typeName,
                   const Request& request, std::function<void(Reply)> done);

/// Submits what the body holds, `{"type": T, "message": {...}, "context": {...}}`, and answers in the same
/// form, with the context as it came. The context is optional; "clientType", a text, and
/// "numoraCapabilities", a list of texts, have a meaning.
void submitEnvelope(dispatch::RequestDispatcher& dispatcher, const Request& request,
                    std::function<void(Reply)> done);

}  // namespace gateway::http
