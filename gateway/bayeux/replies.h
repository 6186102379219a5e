#pragma once

/// The texts of messages to clients.  Threads: any.

#include <chrono>
#include <string>
#include <string_view>

#include "bayeux/ClientMessage.h"
#include "connector/json/ObjectBuilder.h"

namespace gateway::bayeux {

using Members = connector::json::ObjectBuilder;

/// The replies to `message`. `members` go after the others.
std::string succeeded(const ClientMessage& message, const Members& members = {});
std::string failed(const ClientMessage& message, std::string_view error, const Members& members = {});

/// The text of an error, "403:/a/b:denied". `channel` may be anything; it is left out unless it is a portable
/// pattern.
std::string errorText(int code, std::string_view channel, std::string_view text);
inline std::string errorText(int code, std::string_view text) { return errorText(code, {}, text); }

/// What the server advises clients to do next, as the member `advice` of a reply. It is always complete,
/// because clients may take it in place of all that they were advised before.
class Advice {
public:
    using Milliseconds = std::chrono::milliseconds;

    Advice(Milliseconds timeout, Milliseconds maxInterval) {
        limits_.add("timeout", timeout.count()).add("maxInterval", maxInterval.count());
    }

    /// Go on, after `interval`.
    Members retry(Milliseconds interval = {}) const { return with("retry", interval); }
    /// Begin anew. Not for a successful reply.
    Members handshake() const { return with("handshake", {}); }
    /// Give up.
    Members none() const { return with("none", {}); }

private:
    Members with(std::string_view reconnect, Milliseconds interval) const {
        Members advice;
        advice.add("reconnect", reconnect).add("interval", interval.count()).addMembers(limits_);
        return Members().add("advice", advice);
    }

    Members limits_;
};

/// The reply to a message of a client that has no session.
std::string unknownClient(const ClientMessage& message, const Advice& advice);

/// The same JSON text in ASCII. A client may decode UTF-8 piece by piece as it comes over HTTP, and break
/// characters where a piece ends. Malformed bytes become U+FFFD.
std::string inAscii(std::string json);

}  // namespace gateway::bayeux
