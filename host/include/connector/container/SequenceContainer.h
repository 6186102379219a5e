#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "connector/MessageAPI.h"
#include "connector/common/v1/Message.h"
#include "connector/container/SequenceContainerServiceProvider.h"

namespace connector::container {

/// Messages in their order: the requests of one call, or the responses to them. "connector/v1/Sequence" on
/// the wire.
class SequenceContainer : public connector::MessageAPI<SequenceContainer, SequenceContainerServiceProvider>,
                          public connector::common::v1::Message {
public:
    explicit SequenceContainer(std::string uuid = {}, connector::common::v1::Version version = {})
        : connector::common::v1::Message(std::move(uuid), version) {}

    std::vector<std::unique_ptr<connector::Message>> messages;
};

}  // namespace connector::container
