#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "connector/Message.h"
#include "connector/common/v1/Message.h"

namespace connector::interpreter::v1 {

/// How an evaluation ended. "connector/v1/EvalResponse" on the wire.
class EvalResponse : public connector::Message, public connector::common::v1::Response {
public:
    /// `uuid` is the request's.
    explicit EvalResponse(std::string uuid, connector::common::v1::Version version = {})
        : connector::common::v1::Response(std::move(uuid), {}, version) {}

    bool isError = false;
    bool clearCommandWindow = false;  ///< the code cleared the command window, so the client clears its own
    std::int32_t promptType = 0;      ///< the kind of prompt at which the interpreter stopped
    std::u16string responseStr;       ///< what was printed
};

}  // namespace connector::interpreter::v1
