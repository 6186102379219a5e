#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <variant>

#include "foundation/json/Value.h"

/// Fits the event of a display into the messages of clients: where its data is larger than they may be, only
/// the text is kept, and the member `note` names the types that are left out.
inline void fitDisplay(std::map<std::string, foundation::json::Value>& members) {
    using foundation::json::Value;
    constexpr std::size_t longest = std::size_t{4} << 20U;
    const auto sizeOf = [](const Value& value) {
        const auto* const json = std::get_if<Value::Json>(&value.content());
        return json != nullptr ? json->text.size() : 0;
    };
    const auto found = members.find("data");
    const auto* const data =
        found != members.end() ? std::get_if<Value::Object>(&found->second.content()) : nullptr;
    if (data == nullptr) return;
    std::size_t bytes = sizeOf(members["metadata"]);
    for (const auto& [type, value] : *data) bytes += sizeOf(value);
    if (bytes <= longest) return;

    Value::Object kept;
    std::string note;
    for (const auto& [type, value] : *data) {
        if (type == "text/plain" && sizeOf(value) <= longest) {
            kept.emplace(type, value);
        } else {
            note += (note.empty() ? "" : ", ") + type;
        }
    }
    members["metadata"] = Value::Object();
    members["note"] = note + " left out: more than 4 MiB";
    members["data"] = std::move(kept);
}
