#pragma once

#include <string>

#include <Poco/Dynamic/Var.h>

#include "connector/common/DataBuffer.h"

namespace connector::json {

/// Appends `value` as compact JSON in UTF-8: the other way round of `parse`. What stands in an object keeps
/// the order that the object keeps. Strings are escaped as `appendEscaped` does; NaN and the
/// infinities are null.
///
/// Threads: any, while nobody changes the value.
/// Throws: Poco::BadCastException, for a value that has no JSON form; connector::common::OutOfMemory or
/// std::bad_alloc. `out` may hold a part of the value then.
void write(const Poco::Dynamic::Var& value, connector::common::DataBuffer& out);

/// The same as a text.
std::string written(const Poco::Dynamic::Var& value);

}  // namespace connector::json
