#include "bundles/manifest.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>

#include "cppmicroservices/Constants.h"

namespace cppmicroservices::detail {

namespace {

using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

AnyMap toMap(const Object& object);

Any toAny(const Var& value) {
    if (value.isEmpty()) return {};
    if (value.type() == typeid(Object::Ptr)) return toMap(*value.extract<Object::Ptr>());
    if (value.type() == typeid(Array::Ptr)) {
        std::vector<Any> elements;
        for (const Var& element : *value.extract<Array::Ptr>()) elements.push_back(toAny(element));
        return elements;
    }
    if (value.isBoolean()) return value.convert<bool>();
    if (value.isInteger()) return value.convert<int>();
    if (value.isNumeric()) return value.convert<double>();
    return value.convert<std::string>();
}

AnyMap toMap(const Object& object) {
    AnyMap map(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    for (const auto& [key, value] : object) map[key] = toAny(value);
    return map;
}

}  // namespace

Manifest readManifest(const std::string& location) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(location, error)) {
        throw std::runtime_error("There is no bundle library " + location + ".");
    }
    const std::string path = location + ".manifest.json";
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("There is no manifest " + path + ".");
    try {
        const auto object = Poco::JSON::Parser().parse(file).extract<Object::Ptr>();
        return {object->getValue<std::string>(Constants::BUNDLE_SYMBOLICNAME),
                object->optValue(Constants::BUNDLE_ACTIVATOR, false), toMap(*object)};
    } catch (const Poco::Exception& cause) {
        throw std::runtime_error("The manifest " + path + " must be a JSON object with a " +
                                 Constants::BUNDLE_SYMBOLICNAME + ": " + cause.displayText());
    }
}

}  // namespace cppmicroservices::detail
