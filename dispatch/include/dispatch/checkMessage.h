#pragma once

#include <string>

#include <Poco/JSON/Object.h>

namespace dispatch {

/// Refuses a message of type `typeName` that lacks a member or has one of another kind. Its reader would take
/// a default, or convert what it can, and so answer something that the client has not asked for. Gives the
/// message, and each message of a sequence, a uuid where it has none, and warns of members that nobody reads.
/// Other types than those of the interpreter are left to their readers.
/// Throws: BadMessage.
void checkMessage(const std::string& typeName, Poco::JSON::Object& message);

}  // namespace dispatch
