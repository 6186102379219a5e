#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cppmicroservices/AnyMap.h"

namespace cppmicroservices::detail {

/// Whether properties satisfy a condition.  Threads: any.
using Filter = std::function<bool(const AnyMap&)>;

/// Reads the text form of RFC 1960:
///
///     filter  = ws "(" ws ( "&" filter+ | "|" filter+ | "!" filter | test ) ")" ws
///     test    = key ws ( "=" | "~=" | ">=" | "<=" ) value
///     key     = 1*any of but ( ) < > = ~     ; inner blanks kept, outer dropped
///     value   = *( char | "*" | "\" char | balanced "(" value ")" )
///
/// `\` makes the next character literal; `*` is any run of characters; `(key=*)` asks for presence. Filters
/// nest up to 100 deep.
/// Throws: std::invalid_argument, which says what is wrong and where.
Filter parseFilter(const std::string& text);

enum class Comparison { Equal, Approximate, AtLeast, AtMost };

/// Compares one property. Its type decides how; an absent one passes no test.
struct PropertyTest {
    std::string key;
    Comparison comparison;
    std::string text;                 ///< what to compare with; escapes resolved, each `*` as itself
    std::vector<std::string> pieces;  ///< what stands between the `*`s that are any run; never empty

    bool operator()(const AnyMap& properties) const;
};

}  // namespace cppmicroservices::detail
