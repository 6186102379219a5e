#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

namespace connector::json {

/// Malformed JSON. what() says where and why, for a person.
class ParseError : public std::runtime_error {
public:
    ParseError(std::size_t offset, const std::string& reason)
        : std::runtime_error("Invalid JSON at byte " + std::to_string(offset) + ": " + reason),
          offset_(offset) {}

    /// Where the text went wrong.  Units: bytes, from 0.
    std::size_t offset() const { return offset_; }

private:
    std::size_t offset_;
};

/// Text that holds more values than its reader takes.
class TooManyValues : public ParseError {
public:
    using ParseError::ParseError;
};

/// Arrays and objects may be nested this deep, unless another limit is given.
inline constexpr std::size_t deepestNesting = 1000;

/// An array or an object that was not looked into: valid JSON without blanks, in which numbers are as `write`
/// writes them, strings as they were, and the keys of objects in order, the last of several equal ones alone.
struct Text {
    std::shared_ptr<const std::string> json;  ///< never null
};

/// Reads one JSON value in UTF-8 with nothing but blanks around it: what every body from outside goes
/// through.
///
/// Strings become std::string, true and false bool, null an empty Var, arrays Poco::JSON::Array::Ptr, objects
/// Poco::JSON::Object::Ptr, where the last of several equal keys counts. Numbers become Poco::Int64 or
/// Poco::UInt64 where they are integers that fit, else double.
///
/// An array or an object that is the value of a key `asText`, wherever that is, becomes a Text, which takes
/// little more room than it does where it comes from; a tree takes a hundred times as much.
///
/// Threads: any.  Throws: ParseError, for malformed JSON or UTF-8, an escape that is half a pair of
/// surrogates, a number out of the range of a double, or nesting deeper than `depth`; TooManyValues, for more
/// than `values` outside of texts; std::bad_alloc. Source: RFC 8259.
Poco::Dynamic::Var parse(std::string_view text, std::size_t depth = deepestNesting,
                         std::size_t values = std::numeric_limits<std::size_t>::max(),
                         std::string_view asText = {});

/// Puts trees in the place of texts in `object`, for those who know none.  Throws: std::bad_alloc.
void expandTexts(Poco::JSON::Object::Ptr object);

/// Calls `action` with each element of an array that is a Text.
void forEachElement(const Text& array, const std::function<void(std::string_view)>& action);

}  // namespace connector::json
