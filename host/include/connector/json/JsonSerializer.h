#pragma once

#include <functional>
#include <memory>
#include <string>
#include <typeindex>
#include <unordered_map>

#include <Poco/JSON/Object.h>

#include "connector/Message.h"
#include "connector/ThreadSafety.h"

namespace connector::json {

/// Knows which message class each type name on the wire stands for, and the JSON form of each class.
///
/// Threads: every operation from any thread. Services register while others already exchange messages, so
/// the table has a lock; it is held for one look-up, and readers and writers run without it.
class JsonSerializer {
public:
    /// Makes a new message from a JSON object, which may be null.
    using Reader = std::function<std::unique_ptr<Message>(const Poco::JSON::Object::Ptr&)>;
    /// Makes a new JSON object from a message, which is of the class that it was registered for.
    using Writer = std::function<Poco::JSON::Object::Ptr(const Message&)>;

    /// Makes `typeName` stand for the class `type`. Registering the same pair again replaces both functions.
    /// A reader that does not take texts is given trees in their place.
    /// Locks: mutex_.
    /// Throws: std::invalid_argument when the name or the class is already part of another pair.
    void registerType(const std::string& typeName, std::type_index type, Reader reader, Writer writer,
                      bool takesTexts = false) CONNECTOR_EXCLUDES(mutex_);

    /// Whether `typeName` stands for a class.  Locks: mutex_.
    bool isRegistered(const std::string& typeName) const CONNECTOR_EXCLUDES(mutex_);

    /// The message of type `typeName` that `object` describes.
    /// Locks: mutex_.
    /// Throws: std::invalid_argument when the name is not registered; what the reader throws.
    std::unique_ptr<Message> read(const std::string& typeName, const Poco::JSON::Object::Ptr& object) const
        CONNECTOR_EXCLUDES(mutex_);

    /// The JSON form of `message`, whose own class decides, not one of its bases.
    /// Locks: mutex_.
    /// Throws: std::invalid_argument when the class is not registered; what the writer throws.
    Poco::JSON::Object::Ptr write(const Message& message) const CONNECTOR_EXCLUDES(mutex_);

    /// The type name for the class of `message`.
    /// Locks: mutex_.  Throws: std::invalid_argument when the class is not registered.
    std::string typeNameOf(const Message& message) const CONNECTOR_EXCLUDES(mutex_);

private:
    struct Entry {
        std::string typeName;
        std::type_index type;
        Reader reader;
        Writer writer;
        bool takesTexts;
    };
    using EntryPtr = std::shared_ptr<const Entry>;

    EntryPtr entryFor(const Message& message) const CONNECTOR_EXCLUDES(mutex_);

    mutable Mutex mutex_;
    std::unordered_map<std::string, EntryPtr> byName_ CONNECTOR_GUARDED_BY(mutex_);
    std::unordered_map<std::type_index, EntryPtr> byType_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace connector::json
