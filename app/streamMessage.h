#pragma once

/// Reads what the streaming service sends.  Threads: any.

#include <string>

#include <Poco/JSON/Object.h>

#include "Session.h"

namespace app {

/// The member as an object; null without one.
Poco::JSON::Object::Ptr objectIn(const Poco::JSON::Object& object, const std::string& name);
/// The member as an integer; -1 without one, also for a null object.
Poco::Int64 numberIn(const Poco::JSON::Object::Ptr& object, const std::string& name);
/// What this system adds to a message of the Bayeux protocol: the members of "ext", "connector"; may be null.
Poco::JSON::Object::Ptr extensionOf(const Poco::JSON::Object& message);

/// The sentence in a message that tells that the interpreter has died; empty in others.
std::string deathIn(const Poco::JSON::Object& message);

/// A message with data; `line` is its text.
StreamMessage streamMessageFrom(const Poco::JSON::Object& message, std::string line);

}  // namespace app
