#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "jupyter/wire/rawMembers.h"

namespace jupyter {

/// The members of a JSON object that this system has written, found without being parsed.
///
/// Threads: as a plain value. What it has been made of must outlive it.
class JsonMembers {
public:
    /// Throws: std::invalid_argument, for what is no object.
    explicit JsonMembers(std::string_view object) : members_(wire::rawMembers(object)) {}

    /// The JSON of a member; empty where there is none.
    std::string_view json(std::string_view name) const { return wire::valueOf(members_, name); }
    /// The same, or `otherwise` for none and for null.
    std::string jsonOr(std::string_view name, std::string_view otherwise) const;
    /// The text of a string; empty for all else.
    std::string text(std::string_view name) const;
    /// 0 for what is no such number.
    std::uint64_t number(std::string_view name) const;
    bool isTrue(std::string_view name) const { return json(name) == "true"; }

private:
    const wire::RawMembers members_;
};

/// The text of a JSON string; empty for another value.
std::string textOf(std::string_view json);
/// What is between the brackets of an array or an object that is written without blanks.
std::string_view elementsOf(std::string_view json);

}  // namespace jupyter
