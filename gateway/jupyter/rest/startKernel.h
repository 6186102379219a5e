#pragma once

/// What a client gets that wants a kernel.  Threads: any.

#include <memory>
#include <string>

#include <Poco/JSON/Object.h>

#include "jupyter/rest/Ask.h"

namespace gateway::jupyter {

/// The object in the body of a request, an empty one where there is none.
/// Throws: dispatch::BadMessage; connector::json::ParseError.
Poco::JSON::Object::Ptr bodyOf(const Ask& ask);
/// The text of a member; empty where it is missing or null.  Throws: dispatch::BadMessage, for others.
std::string textIn(const Poco::JSON::Object& object, const std::string& name);

/// An interpreter of the client's own or one that there is, as `wish` says and its token allows:
/// docs/gateway.md.  Throws: interpreters::Refusal; dispatch::BadMessage; connector::json::ParseError.
std::shared_ptr<interpreters::Desk> startKernel(const Ask& ask, const Poco::JSON::Object& wish);

/// An id for an interpreter that a client may make with its token; empty when there is none.
std::string freeIdFor(const access::Grant& grant);

}  // namespace gateway::jupyter
