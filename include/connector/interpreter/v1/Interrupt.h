#pragma once

#include <string>
#include <utility>

#include "connector/MessageAPI.h"
#include "connector/common/v1/Message.h"
#include "connector/interpreter/v1/InterpreterServiceProvider.h"

namespace connector::interpreter::v1 {

/// The request to stop what runs. "connector/v1/Interrupt" on the wire.
class Interrupt : public connector::MessageAPI<Interrupt, InterpreterServiceProvider>,
                  public connector::common::v1::Message {
public:
    explicit Interrupt(std::string uuid, connector::common::v1::Version version = {})
        : connector::common::v1::Message(std::move(uuid), version) {}
};

}  // namespace connector::interpreter::v1
