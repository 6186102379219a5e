#pragma once

#include <memory>
#include <string>

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/ServiceReferenceBase.h"

namespace cppmicroservices {

namespace detail {
struct FilterNode;
}

/// A condition on properties, in the text form of RFC 1960:
///
///     filter  = ws "(" ws ( "&" filter+ | "|" filter+ | "!" filter | test ) ")" ws
///     test    = key ws ( "=" | "~=" | ">=" | "<=" ) value
///     key     = 1*any of but ( ) < > = ~     ; inner blanks kept, outer dropped
///     value   = *( char | "*" | "\" char | balanced "(" value ")" )
///
/// `\` makes the next character literal; `*` is any run of characters; `(key=*)` asks for presence. Filters
/// nest up to 100 deep.
///
/// Threads: any.
class LDAPFilter {
public:
    /// One that is false and matches nothing.
    LDAPFilter() = default;
    /// Throws: std::invalid_argument, when `filter` is none.
    explicit LDAPFilter(const std::string& filter);

    explicit operator bool() const { return root_ != nullptr; }
    bool Match(const ServiceReferenceBase& reference) const;
    bool Match(const AnyMap& properties) const;
    /// The same, but the case of keys counts.
    bool MatchCase(const AnyMap& properties) const;

    /// The normal form: no blanks between filters, and `\` only where it is needed.
    std::string ToString() const;
    /// Whether both have the same normal form.
    bool operator==(const LDAPFilter& other) const { return ToString() == other.ToString(); }

private:
    std::shared_ptr<const detail::FilterNode> root_;
};

}  // namespace cppmicroservices
