#pragma once

#include <concepts>
#include <string>
#include <string_view>

namespace connector::json {

/// Builds the text of one JSON object, member by member, in the order in which they are added. For objects
/// that are written once and whose larger values are JSON already.
///
///     ObjectBuilder().add("channel", channel).addJson("data", body).add("successful", true).take()
///
/// Names are taken as they stand: they need no escaping, and none is added twice.
///
/// Threads: as a plain value.  Throws: std::bad_alloc.
class ObjectBuilder {
public:
    /// A string in UTF-8, which is escaped as `appendEscaped` does.
    ObjectBuilder& add(std::string_view name, std::string_view value);
    // Templates, so that no pointer becomes a boolean and no boolean a number.
    template <std::same_as<bool> T>
    ObjectBuilder& add(std::string_view name, T value) {
        return addJson(name, value ? "true" : "false");
    }
    template <std::integral T>
    requires(!std::same_as<T, bool>) ObjectBuilder& add(std::string_view name, T value) {
        return addJson(name, std::to_string(value));
    }
    ObjectBuilder& add(std::string_view name, const ObjectBuilder& value) {
        return addJson(name, value.text());
    }
    /// `json` is one JSON value, which is taken as it stands.
    ObjectBuilder& addJson(std::string_view name, std::string_view json);
    /// Adds the members of another object.
    ObjectBuilder& addMembers(const ObjectBuilder& other);

    /// The members alone, with a comma before each: what goes before the closing brace of another object.
    const std::string& members() const { return members_; }

    /// The object.
    std::string text() const { return ObjectBuilder(*this).take(); }
    /// The object, which nothing is left of then.
    std::string take();

private:
    std::string members_;
};

}  // namespace connector::json
