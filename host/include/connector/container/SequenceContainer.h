#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "connector/Future.h"
#include "connector/Message.h"
#include "connector/MessageAPI.h"
#include "connector/ServiceProviderAPI.h"
#include "connector/common/v1/Message.h"
#include "connector/json/JsonSerializer.h"

namespace connector::container {

class SequenceContainer;

/// Answers sequences of messages, each with the sequence of its responses.
///
/// Threads: any. Several sequences may be handled at a time.
class SequenceContainerServiceProvider
    : public connector::ServiceProviderAPI<SequenceContainerServiceProvider>,
      public std::enable_shared_from_this<SequenceContainerServiceProvider> {
public:
    using connector::ServiceProviderAPI<SequenceContainerServiceProvider>::handle;

    /// `message` is not null.
    virtual connector::Future<std::unique_ptr<connector::Message>> handle(
        std::unique_ptr<SequenceContainer>&& message) = 0;
};

/// Messages in their order: the requests of one call, or the responses to them. "connector/v1/Sequence" on
/// the wire.
class SequenceContainer : public connector::MessageAPI<SequenceContainer, SequenceContainerServiceProvider>,
                          public connector::common::v1::Message {
public:
    explicit SequenceContainer(std::string uuid = {}, connector::common::v1::Version version = {})
        : connector::common::v1::Message(std::move(uuid), version) {}

    std::vector<std::unique_ptr<connector::Message>> messages;
};

/// How many sequences may be inside each other, the outermost included.
inline constexpr int maxSequenceDepth = 8;

/// Registers the JSON form of SequenceContainer, "connector/v1/Sequence":
///
///     {"uuid": "...", "messages": [{"type": "connector/v1/FEval", "message": {...}}, ...]}
///
/// Each message is read and written as `serializer` does it for its type, so a sequence may hold sequences.
/// An absent "uuid" is empty, and so are absent "messages".
///
/// What reading and writing throw: std::runtime_error for a message that has not this form, is of an unknown
/// type, cannot be converted, or lies deeper than maxSequenceDepth. Its text starts with the way to the
/// message, from 0, and ends with the reason: "messages[2]: messages[0]: Unknown message type: x". A null
/// object fails with a Poco::NullPointerException.
///
/// Owns: what is registered uses `serializer`, and is kept by nothing else.
/// Throws: std::invalid_argument when the type name or the class is already part of another pair.
void registerSequenceContainer(connector::json::JsonSerializer& serializer);

}  // namespace connector::container
