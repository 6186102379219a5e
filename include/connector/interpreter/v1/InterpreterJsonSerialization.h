#pragma once

#include <memory>

#include "connector/json/JsonSerializer.h"

namespace connector::interpreter::v1 {

/// The JSON form of the six messages of the interpreter service.
///
/// What readers do with a key:
/// - absent: the field has its default. Unknown keys are ignored.
/// - present: its value is converted as Poco converts it, so "3" and 3 are the same number, and fails as Poco
///   fails, for example with a Poco::RangeException "Value too large.". Null is a value that converts to
///   nothing: it fails with a Poco::InvalidAccessException.
/// - text that is not well-formed UTF-8 fails with an fl::i18n::ConversionError.
/// A null object fails with a Poco::NullPointerException. After a failure there is no message.
///
/// The forms are not symmetric, and clients rely on that: an Eval's time limit is in whole seconds; an
/// FEval's arguments are read as any JSON and written as strings; results are read from an array only and
/// written as a string; the conditions of faults are written only.
///
/// Owns: shares the serializer, also with its copies; what is registered outlives this object.
class InterpreterJsonSerialization {
public:
    /// Registers the six classes. `serializer` is not null.
    /// Throws: std::invalid_argument when one of the type names or classes is already part of another pair.
    explicit InterpreterJsonSerialization(std::shared_ptr<connector::json::JsonSerializer> serializer);
    InterpreterJsonSerialization(const InterpreterJsonSerialization&) = default;
    InterpreterJsonSerialization& operator=(const InterpreterJsonSerialization&) = default;
    virtual ~InterpreterJsonSerialization() = default;

private:
    std::shared_ptr<connector::json::JsonSerializer> serializer_;
};

}  // namespace connector::interpreter::v1
