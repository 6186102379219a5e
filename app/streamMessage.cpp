#include "streamMessage.h"

#include <algorithm>
#include <utility>

#include "connector/json/write.h"

namespace app {

using Poco::Dynamic::Var;
using Poco::JSON::Object;

Object::Ptr objectIn(const Object& object, const std::string& name) {
    const Var value = object.get(name);
    return value.type() == typeid(Object::Ptr) ? value.extract<Object::Ptr>() : Object::Ptr();
}

Poco::Int64 numberIn(const Object::Ptr& object, const std::string& name) {
    const Var value = object.isNull() ? Var() : object->get(name);
    return value.isInteger() ? value.convert<Poco::Int64>() : -1;
}

Object::Ptr extensionOf(const Object& message) {
    const auto extension = objectIn(message, "ext");
    return extension.isNull() ? extension : objectIn(*extension, "connector");
}

std::string deathIn(const Object& message) {
    const auto extension = extensionOf(message);
    const auto death = extension.isNull() ? extension : objectIn(*extension, "death");
    return death.isNull() ? "" : death->optValue<std::string>("sentence", "");
}

StreamMessage streamMessageFrom(const Object& message, std::string line) {
    const Var data = message.get("data");
    const auto extension = extensionOf(message);
    return {.channel = message.optValue<std::string>("channel", ""),
            .request = extension.isNull() ? "" : extension->optValue<std::string>("request", ""),
            .prompt = static_cast<std::uint64_t>(std::max<Poco::Int64>(0, numberIn(extension, "prompt"))),
            .isEchoed = extension.isNull() || extension->optValue("echo", true),
            .death = deathIn(message),
            .text = data.isString() ? data.extract<std::string>() : connector::json::written(data),
            .line = std::move(line)};
}

}  // namespace app
