#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "connector/Future.h"
#include "connector/common/ContextState.h"
#include "connector/common/DataBuffer.h"

namespace connector::message_service {

/// A message that carries a JSON text.
struct JsonMessage {
    std::string channel;
    std::string data;                               ///< one JSON value, as it was sent
    std::shared_ptr<common::ContextState> context;  ///< never null
};

/// A client has subscribed to a channel, or to a pattern of channels.
struct SubscribeEvent {
    std::string channel;     ///< as the client wrote it, wildcards included
    std::string clientId;    ///< the same in every event of one client
    std::string clientType;  ///< what the client says it is; may be empty
};

/// A client has unsubscribed, or has gone away with the subscription.
struct UnsubscribeEvent {
    std::string channel;
    std::string clientId;
    std::string clientType;
};

/// Something that was asked for; destroying it ends it. After that no handler of it is called any more.
/// Blocks: while one of its handlers runs on another thread. Not for one that it is destroyed from within,
/// and not for one that itself waits in this way, for a handler that this thread runs.
class Subscription {
public:
    virtual ~Subscription() = default;
};

/// Carries messages between services and clients by named channels. A name starts with "/"; in a pattern the
/// segment "*" matches one segment and a last segment "**" matches one or more.
///
/// Threads: every operation from any thread, also from a handler. What one thread publishes on one channel
/// arrives in that order at every subscriber, but for what a handler publishes on the channel that it was
/// called for: subscribers whose turn comes later get that first. An exception that a handler throws is
/// logged and goes no further.
class MessageService {
public:
    using MessageHandler = std::function<void(const JsonMessage&)>;
    using SubscribeHandler = std::function<void(const SubscribeEvent&)>;
    using UnsubscribeHandler = std::function<void(const UnsubscribeEvent&)>;

    virtual ~MessageService() = default;

    /// Sends `data`, one JSON value, to whoever subscribed to a pattern that matches `channel`. The bytes are
    /// sent as they are.
    /// Returns a future that is ready once the subscribers in this process have run and the message is queued
    /// for every client.  Blocks: while subscribers in this process run; never for a client.
    /// Throws: std::invalid_argument, for a malformed channel name and for empty data.
    virtual Future<void> publish(const std::string& channel, const common::DataBuffer& data) = 0;

    /// Calls `handler` for every message on a channel that `pattern` matches, on the thread that publishes.
    /// Throws: std::invalid_argument, for a malformed pattern.
    virtual std::unique_ptr<Subscription> subscribe(const std::string& pattern, MessageHandler handler) = 0;

    /// Calls the handlers when clients subscribe to, and unsubscribe from, channels or patterns that can
    /// match a channel which `pattern` matches; for those that are subscribed already, before it returns.
    /// Notices of one client come in their order, which holds within one watch and not between two.
    /// Threads: the handlers of a watch run one at a time, on threads that subscribe or unsubscribe clients.
    /// Throws: std::invalid_argument, for a malformed pattern.
    virtual std::unique_ptr<Subscription> watch(const std::string& pattern, SubscribeHandler subscribed,
                                                UnsubscribeHandler unsubscribed) = 0;
};

/// Hands out message services.
class MessageServiceFactory {
public:
    using Properties = std::map<std::string, std::string>;

    virtual ~MessageServiceFactory() = default;
    /// A message service for the user `name`.  Threads: any.
    virtual Future<std::shared_ptr<MessageService>> create(const std::string& name,
                                                           const Properties& properties) = 0;
};

}  // namespace connector::message_service
