#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "cppmicroservices/Any.h"

namespace cppmicroservices {

namespace detail {

/// Orders keys without regard to the case of ASCII letters.
struct KeyOrder {
    bool operator()(const std::string& left, const std::string& right) const;
};

}  // namespace detail

/// A map from keys, in any case, to values of any type: the headers of a manifest.
///
/// Threads: as a plain value.
class AnyMap : public std::map<std::string, Any, detail::KeyOrder> {
public:
    enum map_type : std::uint8_t { UNORDERED_MAP_CASEINSENSITIVE_KEYS };

    explicit AnyMap(map_type /*type*/) {}
};

}  // namespace cppmicroservices
