#pragma once

#include <string>
#include <utility>

#include "connector/Message.h"
#include "connector/common/v1/Message.h"

namespace connector::interpreter::v1 {

/// The interrupt has been asked for. "connector/v1/InterruptResponse" on the wire.
class InterruptResponse : public connector::Message, public connector::common::v1::Response {
public:
    /// `uuid` is the request's.
    explicit InterruptResponse(std::string uuid, connector::common::v1::Version version = {})
        : connector::common::v1::Response(std::move(uuid), {}, version) {}
};

}  // namespace connector::interpreter::v1
