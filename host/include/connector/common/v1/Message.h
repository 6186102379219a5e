#pragma once

#include <string>
#include <utility>

#include "connector/common/v1/Version.h"

namespace connector::common::v1 {

/// The part of a message that every serialisable class has: which request it is, and in which form.
/// The type name on the wire is no state of a message; the serializer's registration knows it by the class.
///
/// Threads: one at a time, like the message that it is part of.
class Message {
public:
    /// `uuid` is in UTF-8; a response carries the one of its request.
    explicit Message(std::string uuid, Version version = {}) : uuid_(std::move(uuid)), version_(version) {}
    virtual ~Message() = default;

    const std::string& uuid() const { return uuid_; }
    void setUuid(std::string uuid) { uuid_ = std::move(uuid); }
    const Version& version() const { return version_; }

private:
    std::string uuid_;
    Version version_;
};

}  // namespace connector::common::v1
