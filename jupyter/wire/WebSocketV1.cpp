#include <array>
#include <stdexcept>

#include "jupyter/wire/WebSocket.h"
#include "jupyter/wire/rawMembers.h"
#include "wire/channelNamed.h"
#include "wire/parts.h"

namespace jupyter::wire {

namespace {

using Number = Numbers<8, std::endian::little>;
constexpr std::size_t fixedParts = 5;

}  // namespace

// The last offset is that of the end.
WebSocketFrame encodeV1(const Message& message) {
    std::vector<std::string_view> parts = {nameOf(message.channel), message.header, message.parent,
                                           message.metadata, message.content};
    parts.insert(parts.end(), message.buffers.begin(), message.buffers.end());
    std::string data;
    Number::append(data, parts.size() + 1);
    std::size_t offset = Number::size * (parts.size() + 2);
    for (const auto part : parts) {
        Number::append(data, offset);
        offset += part.size();
    }
    Number::append(data, offset);
    data.reserve(offset);
    for (const auto part : parts) data.append(part);
    return {.data = std::move(data), .isText = false};
}

Message decodeV1(std::string_view data) {
    const auto offsets = Number::offsetsIn(data);
    const auto parts = partsBetween(data, offsets, Number::size * (offsets.size() + 1));
    if (parts.size() < fixedParts) throw std::invalid_argument("A message must have at least five parts.");
    Message message;
    message.channel = channelNamed(parts[0]);
    const std::array<std::string*, fixedParts - 1> members = {&message.header, &message.parent,
                                                              &message.metadata, &message.content};
    for (std::size_t i = 0; i < members.size(); ++i) {
        const auto part = parts[i + 1];
        requireUtf8(part);
        rawMembers(part);
        members.at(i)->assign(part);
    }
    message.buffers.assign(parts.begin() + fixedParts, parts.end());
    return message;
}

}  // namespace jupyter::wire
