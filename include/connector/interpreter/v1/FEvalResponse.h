#pragma once

#include <string>
#include <utility>

#include "connector/Message.h"
#include "connector/common/v1/Message.h"

namespace connector::interpreter::v1 {

/// How a function call ended. "connector/v1/FEvalResponse" on the wire.
class FEvalResponse : public connector::Message, public connector::common::v1::Response {
public:
    /// `uuid` is the request's.
    explicit FEvalResponse(std::string uuid, connector::common::v1::Version version = {})
        : connector::common::v1::Response(std::move(uuid), {}, version) {}

    bool isError = false;
    std::u16string results = u"[]";  ///< one JSON array
};

}  // namespace connector::interpreter::v1
