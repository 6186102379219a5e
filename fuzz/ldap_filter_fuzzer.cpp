// Filters of services: the normal form of what is taken is taken again, is its own normal form, and matches
// the same properties.

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/LDAPFilter.h"

using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using cppmicroservices::LDAPFilter;

namespace {

AnyMap makeProperties() {
    AnyMap map(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    map["a"] = std::string("a (b) *c\\ A");
    map["b"] = true;
    map["c"] = 'c';
    map["i"] = -12;
    map["u"] = 18446744073709551615U;
    map["d"] = 0.25;
    map["f"] = 1e10F;
    map["v"] = std::vector<Any>{1, std::string("abab"), std::vector<std::string>{"", "x"}};
    return map;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const AnyMap properties = makeProperties();
    LDAPFilter filter;
    try {
        filter = LDAPFilter(std::string(reinterpret_cast<const char*>(data), size));
    } catch (const std::invalid_argument&) {
        return 0;
    }
    const LDAPFilter again(filter.ToString());
    if (again.ToString() != filter.ToString()) std::abort();
    if (again.Match(properties) != filter.Match(properties)) std::abort();
    if (again.MatchCase(properties) != filter.MatchCase(properties)) std::abort();
    return 0;
}
