#pragma once

#include <memory>

#include "connector/Future.h"
#include "connector/Message.h"
#include "connector/ServiceProviderAPI.h"

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

}  // namespace connector::container
