#include "JsonMembers.h"

#include <charconv>
#include <typeinfo>

#include "connector/json/parse.h"

namespace jupyter {

std::string JsonMembers::jsonOr(std::string_view name, std::string_view otherwise) const {
    const auto value = json(name);
    return std::string(value.empty() || value == "null" ? otherwise : value);
}

std::string JsonMembers::text(std::string_view name) const {
    const auto value = json(name);
    return value.starts_with('"') ? textOf(value) : std::string();
}

std::uint64_t JsonMembers::number(std::string_view name) const {
    const auto value = json(name);
    std::uint64_t number = 0;
    std::from_chars(value.data(), value.data() + value.size(), number);
    return number;
}

std::string textOf(std::string_view json) {
    const auto value = connector::json::parse(json);
    return value.type() == typeid(std::string) ? value.extract<std::string>() : std::string();
}

std::string_view elementsOf(std::string_view json) {
    return json.size() < 2 ? std::string_view() : json.substr(1, json.size() - 2);
}

}  // namespace jupyter
