#pragma once

#include <string>
#include <string_view>

namespace jupyter {

/// The members of a JSON object that this system has written, found without the others being parsed.
///
/// Threads: as a plain value. What it has been made of must outlive it.
class JsonMembers {
public:
    explicit JsonMembers(std::string_view object) : object_(object) {}

    /// The JSON of a member; empty where there is none.
    std::string_view json(std::string_view name) const;
    /// The member, or `otherwise`.
    std::string text(std::string_view name, std::string otherwise = {}) const;
    std::string jsonOr(std::string_view name, std::string_view otherwise) const;
    bool isTrue(std::string_view name) const { return json(name) == "true"; }

private:
    const std::string_view object_;
};

/// The text of a JSON string; empty for another value.
std::string textOf(std::string_view json);
/// What is between the brackets of an array.
std::string_view elementsOf(std::string_view array);

}  // namespace jupyter
