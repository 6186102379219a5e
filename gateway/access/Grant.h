#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace gateway::access {

enum class Right { Use, Restart, Create };

/// The rights that are called so: "use", "restart", "create".  Throws: std::invalid_argument, for others.
std::vector<Right> rightsNamed(const std::vector<std::string>& names);

/// What whoever shows a token may do, and with which interpreters.
///
/// Threads: any; nothing changes.
struct Grant {
    std::vector<std::string> interpreters;  ///< ids; one that ends with '*' stands for all that begin so
    std::vector<Right> rights;

    bool has(Right right) const { return std::ranges::find(rights, right) != rights.end(); }
    bool covers(std::string_view id) const {
        return std::ranges::any_of(interpreters, [id](std::string_view name) {
            return name.ends_with('*') ? id.starts_with(name.substr(0, name.size() - 1)) : id == name;
        });
    }
    bool coversAll() const { return std::ranges::find(interpreters, "*") != interpreters.end(); }
    bool allows(Right right, std::string_view id) const { return has(right) && covers(id); }
    bool operator==(const Grant&) const = default;
};

}  // namespace gateway::access
