#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "connector/MessageAPI.h"
#include "connector/common/v1/Message.h"
#include "connector/interpreter/v1/InterpreterServiceProvider.h"

namespace connector::interpreter::v1 {

/// The request to call one function. "connector/v1/FEval" on the wire.
class FEval : public connector::MessageAPI<FEval, InterpreterServiceProvider>,
              public connector::common::v1::Message {
public:
    explicit FEval(std::string uuid, connector::common::v1::Version version = {})
        : connector::common::v1::Message(std::move(uuid), version) {}

    std::u16string function;                ///< the name of the function
    std::int32_t nargout = 0;               ///< how many results are wanted
    std::int32_t priority = 0;              ///< as the client set it
    std::int32_t timeoutMs = 0;             ///< how long it may run; 0: without a limit
    std::string dequeMode;                  ///< the interpreter states in which it may run, one word
    std::string outputMode;                 ///< how output is rendered; "linenohook": with hotlinks off
    bool hotlinks = false;                  ///< whether output may have hyperlinks
    std::vector<std::u16string> arguments;  ///< one JSON text for each
};

}  // namespace connector::interpreter::v1
