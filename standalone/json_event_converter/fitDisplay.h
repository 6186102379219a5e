#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <variant>

#include "foundation/json/Value.h"
#include "standalone/TaggedEvent.h"

/// The beginning of a JSON string that is longer than a number of bytes.
inline std::string cutJsonString(const std::string& json, std::size_t bytes) {
    static const std::string end = "\\n[...]\"";
    std::size_t cut = 1;
    for (std::size_t at = 1; at + end.size() <= bytes;) {
        cut = at;
        at += json[at] != '\\' ? 1 : json[at + 1] == 'u' ? 6 : 2;
    }
    while ((static_cast<unsigned char>(json[cut]) & 0xC0U) == 0x80U) --cut;  // within a letter in UTF-8
    return json.substr(0, cut) + end;
}

/// Fits the event of a display into the messages of clients: where its data is larger than they may be, only
/// the text is kept, or what fits of it, and the member `note` names the types that are left out. What a
/// notebook shows is not cut, whose clients make room for it; the member that says so goes.
inline void fitDisplay(std::map<std::string, foundation::json::Value>& members) {
    using foundation::json::Value;
    constexpr std::size_t longest = std::size_t{4} << 20U;
    if (members.erase(standalone::TaggedEvent::ofNotebook) > 0) return;
    const auto sizeOf = [](const Value& value) {
        const auto* const json = std::get_if<Value::Json>(&value.content());
        return json != nullptr ? json->text.size() : 0;
    };
    const auto found = members.find("data");
    const auto* const data =
        found != members.end() ? std::get_if<Value::Object>(&found->second.content()) : nullptr;
    if (data == nullptr) return;
    std::size_t bytes = 0;
    for (const auto& member : {"metadata", "transient"}) {
        if (const auto other = members.find(member); other != members.end()) bytes += sizeOf(other->second);
    }
    for (const auto& [type, value] : *data) bytes += sizeOf(value);
    if (bytes <= longest) return;

    Value::Object kept;
    std::string note;
    for (const auto& [type, value] : *data) {
        const auto* const json = std::get_if<Value::Json>(&value.content());
        const bool isLong = sizeOf(value) > longest;
        if (type == "text/plain" && isLong && json->text.starts_with('"')) {
            kept.emplace(type, Value(Value::Json{cutJsonString(json->text, longest)}));
            note += (note.empty() ? "" : ", ") + std::string("the end of ") + type;
        } else if (type == "text/plain" && !isLong) {
            kept.emplace(type, value);
        } else {
            note += (note.empty() ? "" : ", ") + type;
        }
    }
    members["metadata"] = Value::Object();
    if (!note.empty()) members["note"] = note + " left out: more than 4 MiB";
    members["data"] = std::move(kept);
}
