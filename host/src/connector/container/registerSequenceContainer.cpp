#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "connector/container/SequenceContainer.h"
#include "connector/errorText.h"
#include "connector/wireWords.h"

namespace connector::container {

namespace {

using connector::json::JsonSerializer;
using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

// The serializer calls readers and writers on the thread that called it, and passes no depth on.
thread_local int depth = 0;

class Level {
public:
    Level() {
        if (depth == maxSequenceDepth)
            throw std::runtime_error("Sequences must not be nested deeper than " +
                                     std::to_string(maxSequenceDepth) + ".");
        ++depth;
    }
    ~Level() { --depth; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;
};

/// The result of `action`, which is about the message at `index`.
template <class Action>
auto namingIndex(std::size_t index, Action action) {
    const auto failed = [index](const std::string& reason) {
        return std::runtime_error("messages[" + std::to_string(index) + "]: " + reason);
    };
    try {
        return action();
    } catch (const std::exception& error) {
        throw failed(errorText(error));
    }
}

std::unique_ptr<Message> readEntry(const JsonSerializer& serializer, const Var& entry) {
    if (entry.type() != typeid(Object::Ptr))
        throw std::runtime_error("A message must be an object with \"type\" and \"message\".");
    const auto& object = entry.extract<Object::Ptr>();
    const Var type = object->get("type");
    if (!type.isString()) throw std::runtime_error("\"type\" must be a string.");
    const Object::Ptr message = object->getObject("message");
    if (!message) throw std::runtime_error("\"message\" must be an object.");
    return serializer.read(type.extract<std::string>(), message);
}

std::string uuidOf(const Object& object) {
    if (!object.has("uuid")) return {};
    const Var uuid = object.get("uuid");
    if (!uuid.isString() && !uuid.isNumeric()) throw std::runtime_error("\"uuid\" must be a string.");
    return uuid.convert<std::string>();
}

std::unique_ptr<Message> read(const JsonSerializer& serializer, const Object::Ptr& object) {
    const Level level;
    auto sequence = std::make_unique<SequenceContainer>(uuidOf(*object));
    if (!object->has("messages")) return sequence;
    const Array::Ptr entries = object->getArray("messages");
    if (!entries) throw std::runtime_error("\"messages\" must be an array.");
    sequence->messages.reserve(entries->size());
    for (const Var& entry : *entries) {
        sequence->messages.push_back(
            namingIndex(sequence->messages.size(), [&] { return readEntry(serializer, entry); }));
    }
    return sequence;
}

Object::Ptr writeEntry(const JsonSerializer& serializer, const Message* message) {
    if (!message) throw std::runtime_error("There is no message.");
    Object::Ptr entry = new Object;
    entry->set("type", serializer.typeNameOf(*message));
    entry->set("message", serializer.write(*message));
    return entry;
}

Object::Ptr write(const JsonSerializer& serializer, const Message& message) {
    const Level level;
    const auto& sequence = dynamic_cast<const SequenceContainer&>(message);
    Array::Ptr entries = new Array;
    for (const auto& entry : sequence.messages) {
        entries->add(namingIndex(entries->size(), [&] { return writeEntry(serializer, entry.get()); }));
    }
    Object::Ptr object = new Object;
    object->set("uuid", sequence.uuid());
    object->set("messages", entries);
    return object;
}

}  // namespace

// The functions refer to the serializer without owning it: it holds them, and it alone calls them.
void registerSequenceContainer(JsonSerializer& serializer) {
    serializer.registerType(
        wire::type::sequence, typeid(SequenceContainer),
        [&serializer](const Object::Ptr& object) { return read(serializer, object); },
        [&serializer](const Message& message) { return write(serializer, message); },
        true);  // which the readers of its messages take or not
}

}  // namespace connector::container
