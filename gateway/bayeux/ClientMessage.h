#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

#include "dispatch/members.h"

namespace gateway::bayeux {

/// One message of a client. A member that is missing or of another type than asked for is empty.
///
/// Threads: one at a time.
class ClientMessage {
public:
    explicit ClientMessage(Poco::JSON::Object::Ptr object);

    const std::string& channel() const { return channel_; }
    const std::string& clientId() const { return clientId_; }
    /// The id, any JSON value; empty when there is none.
    const std::string& idJson() const { return idJson_; }

    bool has(const std::string& name) const { return object_->has(name); }
    Poco::Dynamic::Var get(const std::string& name) const { return object_->get(name); }
    std::string text(const std::string& name) const;
    /// A member of `ext`.
    Poco::Dynamic::Var extension(const std::string& name) const;
    /// A member of `ext.connector`, which is this system's own.
    Poco::Dynamic::Var ownExtension(const std::string& name) const;
    /// The life of the interpreter that the message is for, `ext.connector.life`; nothing where it names
    /// none. Throws: dispatch::BadMessage, for what is no number of one.
    std::optional<std::uint64_t> life() const;
    /// Refuses members of `ext.connector` of another kind than `members` say.  Throws: dispatch::BadMessage.
    void checkOwnExtensions(std::span<const dispatch::Member> members) const;

private:
    Poco::JSON::Object::Ptr object_;
    std::string channel_;
    std::string clientId_;
    std::string idJson_;
};

/// A value as an object, or null.
Poco::JSON::Object::Ptr objectOf(const Poco::Dynamic::Var& value);
/// A value as a string, or an empty one.
std::string textOf(const Poco::Dynamic::Var& value);
/// A value as a number, without its fraction and between 0 and the largest one; nullopt for other values.
std::optional<std::int64_t> numberOf(const Poco::Dynamic::Var& value);

/// Whether one of the first few client ids in a text is known, by `isKnown`. Searches the text instead of
/// parsing it.
bool showsClientId(std::string_view text, const std::function<bool(const std::string&)>& isKnown);

/// Whether the server knows this way to connect.
inline bool isConnectionType(std::string_view name) { return name == "websocket" || name == "long-polling"; }

/// What a client sent is not an array of messages, or too large a one.
class MalformedArray : public std::runtime_error {
public:
    MalformedArray(int httpStatus, std::uint16_t closeCode, const std::string& reason)
        : std::runtime_error(reason), httpStatus_(httpStatus), closeCode_(closeCode) {}

    int httpStatus() const { return httpStatus_; }
    std::uint16_t closeCode() const { return closeCode_; }  ///< of a WebSocket

private:
    int httpStatus_;
    std::uint16_t closeCode_;
};

/// The messages in the body of a POST or a WebSocket's frame: an array of objects, or one object. Beside a
/// handshake, the others in its array are ignored. Data that is an array or an object stays a
/// connector::json::Text, and does not count towards the values. Throws: MalformedArray.
std::vector<ClientMessage> readMessages(std::string_view text, std::size_t depth, std::size_t maxMessages,
                                        std::size_t maxValues);

}  // namespace gateway::bayeux
