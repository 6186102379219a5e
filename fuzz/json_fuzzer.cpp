// The JSON reader: what it takes, written out, is read as the same again.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "connector/json/parse.h"
#include "connector/json/write.h"

using connector::json::parse;
using connector::json::written;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Poco::Dynamic::Var value;
    try {
        value = parse(text, 64);
    } catch (const connector::json::ParseError& error) {
        if (error.offset() > size) std::abort();
        return 0;
    }
    const auto once = written(value);
    if (written(parse(once)) != once) std::abort();
    return 0;
}
