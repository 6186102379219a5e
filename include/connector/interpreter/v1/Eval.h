#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "connector/MessageAPI.h"
#include "connector/common/v1/Message.h"
#include "connector/interpreter/v1/InterpreterServiceProvider.h"

namespace connector::interpreter::v1 {

/// The request to run code. "connector/v1/Eval" on the wire.
class Eval : public connector::MessageAPI<Eval, InterpreterServiceProvider>,
             public connector::common::v1::Message {
public:
    explicit Eval(std::string uuid, connector::common::v1::Version version = {})
        : connector::common::v1::Message(std::move(uuid), version) {}

    std::u16string mcode;        ///< the code, as the user typed it
    std::int32_t width = 0;      ///< of the command window of the client, in characters
    std::int32_t height = 0;     ///< of the command window of the client, in lines
    std::int32_t timeoutMs = 0;  ///< how long it may run; 0: without a limit. The wire has whole seconds.
};

}  // namespace connector::interpreter::v1
