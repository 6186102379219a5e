#include "bayeux/ClientMessage.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <Poco/JSON/Array.h>

#include "bayeux/channelRules.h"
#include "connector/json/parse.h"
#include "connector/json/write.h"

namespace gateway::bayeux {

using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace {

constexpr std::uint16_t invalidPayload = 1007;
constexpr std::uint16_t policyViolation = 1008;
constexpr std::uint16_t tooBig = 1009;

Var parsed(std::string_view text, std::size_t depth, std::size_t maxValues) {
    try {
        return connector::json::parse(text, depth, maxValues, "data");
    } catch (const connector::json::TooManyValues& error) {
        throw MalformedArray(413, tooBig, error.what());
    } catch (const connector::json::ParseError& error) {
        throw MalformedArray(400, invalidPayload, error.what());
    }
}

ClientMessage messageOf(const Var& value) {
    const auto object = objectOf(value);
    if (object.isNull()) throw MalformedArray(400, invalidPayload, "A message must be a JSON object");
    return ClientMessage(object);
}

}  // namespace

Object::Ptr objectOf(const Var& value) {
    return value.type() == typeid(Object::Ptr) ? value.extract<Object::Ptr>() : nullptr;
}

std::string textOf(const Var& value) {
    return value.type() == typeid(std::string) ? value.extract<std::string>() : "";
}

std::optional<std::int64_t> numberOf(const Var& value) {
    constexpr auto largest = std::numeric_limits<std::int64_t>::max();
    const auto& type = value.type();
    if (type == typeid(Poco::Int64)) return std::max<std::int64_t>(value.extract<Poco::Int64>(), 0);
    if (type == typeid(Poco::UInt64)) return largest;  // it would be an Int64 if it fitted
    if (type != typeid(double)) return std::nullopt;
    const auto real = value.extract<double>();
    if (real >= static_cast<double>(largest)) return largest;
    return real > 0 ? static_cast<std::int64_t>(real) : 0;
}

ClientMessage::ClientMessage(Object::Ptr object)
    : object_(std::move(object)), channel_(text("channel")), clientId_(text("clientId")) {
    if (has("id")) idJson_ = connector::json::written(get("id"));
}

std::string ClientMessage::text(const std::string& name) const { return textOf(get(name)); }

Var ClientMessage::extension(const std::string& name) const {
    const auto extensions = objectOf(get("ext"));
    return extensions.isNull() ? Var() : extensions->get(name);
}

Var ClientMessage::ownExtension(const std::string& name) const {
    const auto members = objectOf(extension("connector"));
    return members.isNull() ? Var() : members->get(name);
}

std::optional<std::uint64_t> ClientMessage::life() const {
    const Var value = ownExtension("life");
    if (value.isEmpty()) return std::nullopt;
    if (value.type() == typeid(Poco::Int64) && value.extract<Poco::Int64>() >= 0) {
        return static_cast<std::uint64_t>(value.extract<Poco::Int64>());
    }
    throw dispatch::BadMessage("ext.connector.life must be an integer of at least 0");
}

void ClientMessage::checkOwnExtensions(std::span<const dispatch::Member> members) const {
    const Var own = extension("connector");
    if (own.isEmpty()) return;
    const auto object = objectOf(own);
    if (object.isNull()) throw dispatch::BadMessage("ext.connector must be an object");
    std::vector<std::string> unknown;
    dispatch::checkMembers(members, *object, "ext.connector.", unknown);
    dispatch::warnOfUnknown(channel_, unknown);
}

bool showsClientId(std::string_view text, const std::function<bool(const std::string&)>& isKnown) {
    constexpr std::string_view key = R"("clientId")";
    constexpr std::size_t longest = 64;
    for (int tries = 0; tries < 16; ++tries) {  // data may have such members, too
        const auto at = text.find(key);
        if (at == std::string_view::npos) return false;
        text.remove_prefix(at + key.size());
        text.remove_prefix(std::min(text.find_first_not_of(": \"\t\r\n"), text.size()));
        if (isKnown(std::string(text.substr(0, std::min(text.find('"'), longest))))) return true;
    }
    return false;
}

std::vector<ClientMessage> readMessages(std::string_view text, std::size_t depth, std::size_t maxMessages,
                                        std::size_t maxValues) {
    const Var value = parsed(text, depth, maxValues);
    std::vector<ClientMessage> messages;
    if (value.type() != typeid(Array::Ptr)) {
        messages.push_back(messageOf(value));
        return messages;
    }
    const auto& array = *value.extract<Array::Ptr>();
    if (array.size() > maxMessages)
        throw MalformedArray(413, policyViolation, "The array holds too many messages");
    for (const Var& element : array) messages.push_back(messageOf(element));
    const auto handshake = std::ranges::find(messages, handshakeChannel, &ClientMessage::channel);
    if (handshake != messages.end()) return {*handshake};
    return messages;
}

}  // namespace gateway::bayeux
