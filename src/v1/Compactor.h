#pragma once

#include <sstream>
#include <string>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>

namespace connector::interpreter::v1 {

/// Writes values back to compact JSON, as Poco does. Arrays of numbers, which can be long, are written
/// without a stream; for the rest one stream serves many values, as making one is slow.
///
/// Threads: one at a time.
class Compactor {
public:
    std::u16string operator()(const Poco::Dynamic::Var& value);

private:
    void append(const Poco::Dynamic::Var& value);
    void appendArray(const Poco::JSON::Array& array);

    std::string text_;
    std::ostringstream stream_;
};

}  // namespace connector::interpreter::v1
