#include "bayeux/Request.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <Poco/JSON/Array.h>

#include "bayeux/replies.h"
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
        throw BadEnvelope(413, tooBig, error.what());
    } catch (const connector::json::ParseError& error) {
        throw BadEnvelope(400, invalidPayload, error.what());
    }
}

Request requestOf(const Var& value) {
    const auto object = objectOf(value);
    if (object.isNull()) throw BadEnvelope(400, invalidPayload, "A message is a JSON object");
    return Request(object);
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

Request::Request(Object::Ptr object)
    : object_(std::move(object)), channel_(text("channel")), clientId_(text("clientId")) {
    if (has("id")) idMember_ = R"(,"id":)" + connector::json::written(get("id"));
}

std::string Request::text(const std::string& name) const { return textOf(get(name)); }

Var Request::extension(const std::string& name) const {
    const auto extensions = objectOf(get("ext"));
    return extensions.isNull() ? Var() : extensions->get(name);
}

Var Request::ownExtension(const std::string& name) const {
    const auto members = objectOf(extension("connector"));
    return members.isNull() ? Var() : members->get(name);
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

std::vector<Request> readRequests(std::string_view text, std::size_t depth, std::size_t maxMessages,
                                  std::size_t maxValues) {
    const Var value = parsed(text, depth, maxValues);
    std::vector<Request> requests;
    if (value.type() != typeid(Array::Ptr)) {
        requests.push_back(requestOf(value));
        return requests;
    }
    const auto& array = *value.extract<Array::Ptr>();
    if (array.size() > maxMessages) throw BadEnvelope(413, policyViolation, "Too many messages");
    for (const Var& element : array) requests.push_back(requestOf(element));
    const auto handshake = std::ranges::find(requests, std::string_view(handshakeChannel), &Request::channel);
    if (handshake != requests.end()) return {*handshake};
    return requests;
}

}  // namespace gateway::bayeux
