#pragma once

#include "connector/json/JsonSerializer.h"

namespace connector::container {

/// How many sequences may be inside each other, the outermost included.
inline constexpr int maxSequenceDepth = 8;

/// Registers the JSON form of SequenceContainer, "connector/v1/Sequence":
///
///     {"uuid": "...", "messages": [{"type": "connector/v1/FEval", "message": {...}}, ...]}
///
/// Each message is read and written as `serializer` does it for its type, so a sequence may hold sequences.
/// An absent "uuid" is empty, and so are absent "messages".
///
/// What reading and writing throw: std::runtime_error for a message that has not this form, is of an unknown
/// type, cannot be converted, or lies deeper than maxSequenceDepth. Its text starts with the way to the
/// message, from 0, and ends with the reason: "messages[2]: messages[0]: Unknown message type: x". A null
/// object fails with a Poco::NullPointerException.
///
/// Owns: what is registered uses `serializer`, and is kept by nothing else.
/// Throws: std::invalid_argument when the type name or the class is registered otherwise.
void registerSequenceContainer(connector::json::JsonSerializer& serializer);

}  // namespace connector::container
