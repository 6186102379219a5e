#include "dispatch/readMessage.h"

#include "connector/json/parse.h"

namespace dispatch {

Poco::JSON::Object::Ptr readMessage(std::string_view json) {
    constexpr std::size_t mostValues = 20'000;
    const auto value = connector::json::parse(json, connector::json::deepestNesting, mostValues, "arguments");
    if (value.type() != typeid(Poco::JSON::Object::Ptr)) return nullptr;
    return value.extract<Poco::JSON::Object::Ptr>();
}

}  // namespace dispatch
