#pragma once

#include <memory>

#include "connector/container/SequenceContainerServiceProvider.h"

namespace connector::interpreter::v1 {

class SequenceWorkers;

/// Runs the requests of a sequence one after another and answers with the sequence of their responses.
///
/// A call takes the requests without hotlinks first, then those with; each group keeps its order. Each is
/// delivered by the framework that delivered the call, to the same address and in the same context, once the
/// response before it has come. Responses stand in the order in which the requests ran, each with the uuid of
/// its request; the sequence of them has the uuid of the call.
///
/// The first request that cannot be delivered, or whose future fails, fails the whole call with the same
/// error; what had come by then is dropped. A response with faults is a response like any other.
///
/// Threads: every operation from any thread. Deliveries, which may block, run on threads that the provider
/// starts when they are needed, and so do continuations of the returned futures, but for those of a call that
/// is ended by a stop. A call whose delivery returned without the response holds no thread while it waits,
/// and the thread that brings the response only hands over. Owns: a call holds neither the provider nor the
/// framework. A provider that is stopped or destroyed waits for deliveries that block, and ends the calls
/// under way with "Service exists but is not running.": at once, or when an awaited response has come.
class FEvalSequenceServiceProvider : public connector::container::SequenceContainerServiceProvider {
public:
    FEvalSequenceServiceProvider();
    ~FEvalSequenceServiceProvider() override;

    using connector::container::SequenceContainerServiceProvider::handle;
    /// Blocks: never.
    connector::Future<std::unique_ptr<connector::Message>> handle(
        std::unique_ptr<connector::container::SequenceContainer>&& message) override;

protected:
    void doStart() override;
    void doStop() override;

private:
    const std::shared_ptr<SequenceWorkers> workers_;
};

}  // namespace connector::interpreter::v1
