#pragma once

#include <memory>

#include "connector/Future.h"
#include "connector/Message.h"
#include "connector/common/Lifecycle.h"

namespace connector {

/// A service that answers messages, whatever their family. A framework holds its providers as this.
class ServiceProvider : public common::Lifecycle {
public:
    /// Answers `message`. Whether it is taken is the provider's decision: a refused message stays with the
    /// caller.
    /// Threads: any.  Blocks: as long as the provider says.
    virtual Future<std::unique_ptr<Message>> handle(std::unique_ptr<Message>&& message) = 0;
};

}  // namespace connector
