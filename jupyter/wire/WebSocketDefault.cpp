#include <stdexcept>

#include "connector/json/ObjectBuilder.h"
#include "jupyter/wire/WebSocket.h"
#include "jupyter/wire/rawMembers.h"
#include "wire/channelNamed.h"
#include "wire/parts.h"

namespace jupyter::wire {

namespace {

using Number = Numbers<4, std::endian::big>;

// What stands in the header stands beside it as well: where gateway clients look for it.
std::string jsonOf(const Message& message) {
    const auto header = rawMembers(message.header);
    connector::json::ObjectBuilder json;
    json.addJson("header", message.header);
    for (const std::string_view name : {"msg_id", "msg_type"}) {
        if (const auto value = valueOf(header, name); !value.empty()) json.addJson(name, value);
    }
    return json.addJson("parent_header", message.parent)
        .addJson("metadata", message.metadata)
        .addJson("content", message.content)
        .add("channel", nameOf(message.channel))
        .addJson("buffers", "[]")
        .take();
}

std::string objectIn(const RawMembers& members, std::string_view name) {
    const auto value = valueOf(members, name);
    if (value.empty() || value == "null") return "{}";
    if (!value.starts_with('{')) throw std::invalid_argument(std::string(name) + " must be an object.");
    return std::string(value);
}

Message messageIn(std::string_view json) {
    const auto members = rawMembers(json);
    Message message;
    if (const auto channel = valueOf(members, "channel"); channel.size() > 2) {
        message.channel = channelNamed(channel.substr(1, channel.size() - 2));
    }
    if (valueOf(members, "header").empty()) throw std::invalid_argument("A message must have a header.");
    message.header = objectIn(members, "header");
    message.parent = objectIn(members, "parent_header");
    message.metadata = objectIn(members, "metadata");
    message.content = objectIn(members, "content");
    return message;
}

}  // namespace

WebSocketFrame encodeDefault(const Message& message) {
    std::string json = jsonOf(message);
    if (message.buffers.empty()) return {.data = std::move(json), .isText = true};
    std::vector<std::string_view> parts(message.buffers.begin(), message.buffers.end());
    parts.insert(parts.begin(), json);
    std::string data;
    Number::append(data, parts.size());
    std::size_t offset = Number::size * (parts.size() + 1);
    for (const auto part : parts) {
        Number::append(data, offset);
        offset += part.size();
    }
    for (const auto part : parts) data.append(part);
    return {.data = std::move(data), .isText = false};
}

Message decodeDefault(std::string_view data, bool isText) {
    if (isText) return messageIn(data);
    auto offsets = Number::offsetsIn(data);
    const auto headSize = Number::size * (offsets.size() + 1);
    offsets.push_back(data.size());
    const auto parts = partsBetween(data, offsets, headSize);
    requireUtf8(parts.front());
    Message message = messageIn(parts.front());
    message.buffers.assign(parts.begin() + 1, parts.end());
    return message;
}

}  // namespace jupyter::wire
