#pragma once

#include <string>
#include <string_view>

#include <Poco/JSON/Object.h>

namespace jupyter {

/// The object that `json` describes. Where it is not valid because of what some clients write all the same,
/// NaN, infinities and unpaired surrogates, `json` is changed: null stands for the first, U+FFFD for the
/// latter. What is an array or object below a key `asText` stays text: connector::json::parse.
/// Throws: connector::json::ParseError; std::invalid_argument, for another value.
Poco::JSON::Object::Ptr parseLeniently(std::string& json, std::string_view asText = {});

/// Valid JSON of what is such JSON.
std::string repaired(std::string_view json);

}  // namespace jupyter
