#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cppmicroservices/AnyMap.h"

namespace cppmicroservices::detail {

/// The right side of a test.
struct FilterValue {
    std::string text;                 ///< escapes resolved, each `*` as itself
    std::vector<std::string> pieces;  ///< what stands between the `*`s that are any run; never empty

    bool isPresence() const { return pieces.size() == 2 && pieces[0].empty() && pieces[1].empty(); }
};

enum class FilterKind { And, Or, Not, Equal, Approximate, AtLeast, AtMost };

/// A filter as a tree. Not more than `deepestFilter` levels, so functions that go down it may recurse.
struct FilterNode {
    FilterKind kind;
    std::vector<FilterNode> children;  ///< of And, Or and Not
    std::string key;                   ///< of the tests, as is the value
    FilterValue value;
};

constexpr int deepestFilter = 100;

/// Reads a filter.  Throws: std::invalid_argument, which says what is wrong and where.
FilterNode parseFilter(const std::string& text);

/// The normal form.
std::string filterText(const FilterNode& filter);

/// Whether `properties` satisfy `filter`. `keysByCase`: the case of keys counts.
bool matches(const FilterNode& filter, const AnyMap& properties, bool keysByCase);

/// Whether a test for the property `key` stands somewhere in `filter`.
bool mentions(const FilterNode& filter, const std::string& key);

/// Whether a property's value passes the test `test`.
bool matchesValue(const FilterNode& test, const Any& value);

}  // namespace cppmicroservices::detail
