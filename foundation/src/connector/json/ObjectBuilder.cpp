#include "connector/json/ObjectBuilder.h"

#include <utility>

#include "connector/json/escape.h"

namespace connector::json {

ObjectBuilder& ObjectBuilder::add(std::string_view name, std::string_view value) {
    return addJson(name, quoted(value));
}

ObjectBuilder& ObjectBuilder::addJson(std::string_view name, std::string_view json) {
    members_.reserve(members_.size() + name.size() + json.size() + 5);
    members_.append(",\"").append(name).append("\":").append(json);
    return *this;
}

ObjectBuilder& ObjectBuilder::addMembers(const ObjectBuilder& other) {
    members_.append(other.members_);
    return *this;
}

std::string ObjectBuilder::take() {
    if (members_.empty()) return "{}";
    members_.front() = '{';
    members_.push_back('}');
    return std::exchange(members_, {});
}

}  // namespace connector::json
