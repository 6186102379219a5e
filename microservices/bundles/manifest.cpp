#include "bundles/manifest.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

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
    if (value.isInteger()) {
        const auto number = value.convert<std::int64_t>();
        return static_cast<int>(number) == number ? Any(static_cast<int>(number)) : Any(number);
    }
    if (value.isNumeric()) return value.convert<double>();
    return value.convert<std::string>();
}

AnyMap toMap(const Object& object) {
    AnyMap map(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    for (const auto& [key, value] : object) map[key] = toAny(value);
    return map;
}

AnyMap readManifest(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("There is no manifest " + path + ".");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    try {
        return toMap(*Poco::JSON::Parser().parse(text).extract<Object::Ptr>());
    } catch (const Poco::Exception& error) {
        throw std::runtime_error("The manifest " + path + " is no JSON object: " + error.displayText());
    }
}

}  // namespace

std::vector<AnyMap> readManifests(const std::string& location, const AnyMap& given) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(location, error)) {
        throw std::runtime_error("There is no bundle library " + location + ".");
    }
    if (given.empty()) return {readManifest(location + ".manifest.json")};
    std::vector<AnyMap> manifests;
    for (const auto& [name, headers] : given) {
        const auto* map = any_cast<AnyMap>(&headers);
        if (map == nullptr) throw std::runtime_error("The manifest of bundle " + name + " is no map.");
        manifests.push_back(*map);
        manifests.back().emplace(Constants::BUNDLE_SYMBOLICNAME, name);
    }
    return manifests;
}

}  // namespace cppmicroservices::detail
