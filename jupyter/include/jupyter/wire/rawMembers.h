#pragma once

/// Looks into JSON objects without changing a byte of what is in them. Texts of clients may hold what strict
/// readers refuse, such as NaN and halves of surrogate pairs.
/// Threads: any.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace jupyter::wire {

/// Names, as they stand between the quotes, and values.
using RawMembers = std::vector<std::pair<std::string_view, std::string_view>>;

/// The members of an object, which stay in `json`: only where each begins and ends is looked for.
/// Throws: std::invalid_argument, for what is no object, or ends within one.
RawMembers rawMembers(std::string_view json);

/// The last value called so; empty where there is none.
std::string_view valueOf(const RawMembers& members, std::string_view name);

/// The text of a member that is a string without escapes; empty for all else.
/// Throws: as rawMembers.
std::string_view textIn(std::string_view json, std::string_view name);

}  // namespace jupyter::wire
