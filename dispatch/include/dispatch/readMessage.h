#pragma once

#include <cstddef>
#include <string_view>

#include <Poco/JSON/Object.h>

namespace dispatch {

/// Reading a larger body takes longer than other clients are to wait for.
inline constexpr std::size_t largeBody = std::size_t{64} << 10;

/// The object that `json` describes, or null when it is another value. The arguments of calls stay text; of
/// all else it may hold 20,000 values, which take much more room than their text.
/// Throws: connector::json::ParseError.
Poco::JSON::Object::Ptr readMessage(std::string_view json);

}  // namespace dispatch
