// Filters of services: what is accepted is accepted inside of another filter too, which then matches the same
// properties, or, negated, the others.

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "filter/Filter.h"

using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using cppmicroservices::detail::Filter;
using cppmicroservices::detail::parseFilter;

namespace {

AnyMap makeProperties() {
    AnyMap map(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    map["a"] = std::string("a (b) *c\\ A");
    map["b"] = true;
    map["i"] = -12;
    map["u"] = 18446744073709551615U;
    map["d"] = 0.25;
    map["f"] = 1e10F;
    map["v"] = std::vector<Any>{1, std::string("abab"), std::vector<std::string>{"", "x"}};
    return map;
}

bool isAccepted(const std::string& text) {
    try {
        parseFilter(text);
        return true;
    } catch (const std::invalid_argument&) {
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const AnyMap properties = makeProperties();
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (!isAccepted(text)) return 0;
    const bool isMatch = parseFilter(text)(properties);
    for (const char* kind : {"&", "|", "!"}) {
        const std::string outer = "(" + (kind + text) + ")";
        // Only the depth of filters is limited.
        if (!isAccepted(outer)) {
            if (size < 100) std::abort();
        } else if (parseFilter(outer)(properties) != (isMatch != (*kind == '!'))) {
            std::abort();
        }
    }
    return 0;
}
