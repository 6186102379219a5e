#include "connector/json/JsonSerializer.h"

#include <stdexcept>
#include <typeinfo>
#include <utility>

#include "connector/json/parse.h"
#include "foundation/core/diag.h"

namespace connector::json {

void JsonSerializer::registerType(const std::string& typeName, std::type_index type, Reader reader,
                                  Writer writer, bool takesTexts) {
    auto entry = std::make_shared<const Entry>(
        Entry{typeName, type, std::move(reader), std::move(writer), takesTexts});
    const MutexLock lock(mutex_);
    const auto named = byName_.find(typeName);
    const auto typed = byType_.find(type);
    if ((named != byName_.end() && named->second->type != type) ||
        (typed != byType_.end() && typed->second->typeName != typeName)) {
        throw std::invalid_argument("Message type " + typeName +
                                    " or its class is already part of another pair.");
    }
    byName_[typeName] = entry;
    byType_[type] = std::move(entry);
}

bool JsonSerializer::isRegistered(const std::string& typeName) const {
    const MutexLock lock(mutex_);
    return byName_.contains(typeName);
}

std::unique_ptr<Message> JsonSerializer::read(const std::string& typeName,
                                              const Poco::JSON::Object::Ptr& object) const {
    EntryPtr entry;
    {
        const MutexLock lock(mutex_);
        const auto found = byName_.find(typeName);
        if (found != byName_.end()) entry = found->second;
    }
    if (!entry) throw std::invalid_argument("Unknown message type: " + typeName);
    if (object && !entry->takesTexts) expandTexts(object);
    return entry->reader(object);
}

Poco::JSON::Object::Ptr JsonSerializer::write(const Message& message) const {
    return entryFor(message)->writer(message);
}

std::string JsonSerializer::typeNameOf(const Message& message) const { return entryFor(message)->typeName; }

JsonSerializer::EntryPtr JsonSerializer::entryFor(const Message& message) const {
    {
        const MutexLock lock(mutex_);
        const auto found = byType_.find(typeid(message));
        if (found != byType_.end()) return found->second;
    }
    throw std::invalid_argument("Unregistered message class: " +
                                foundation::core::diag::detail::demangle_typeid_name(typeid(message).name()));
}

}  // namespace connector::json
