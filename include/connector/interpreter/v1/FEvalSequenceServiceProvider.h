#pragma once

#include <array>
#include <cstddef>
#include <memory>

#include "connector/container/SequenceContainer.h"

namespace connector {
class WorkerPool;
}

namespace connector::interpreter::v1 {

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
/// A context with a "requestStartTime" gets a new time for each request after the first: an interrupt ends
/// the one that runs. Every request is run, but a response beyond `maxText` has a fault instead of its text.
///
/// Threads: every operation from any thread. Deliveries, which may block, run on threads that the provider
/// starts when they are needed, 16 at most for the sequences that wait for the same state of the interpreter,
/// and so do continuations of the returned futures, but for those of a call that is ended by a stop. A call
/// whose delivery returned without the response holds no thread while it waits, and the thread that brings
/// the response only hands over. Owns: a call holds neither the provider nor the framework. A provider that
/// is stopped or destroyed waits for deliveries that block, and ends the calls under way with ServiceStopped:
/// at once, or when an awaited response has come.
class FEvalSequenceServiceProvider : public connector::container::SequenceContainerServiceProvider {
public:
    /// What the responses of a call may hold in all.  Units: UTF-16 code units.
    static constexpr std::size_t maxText = std::size_t{32} << 20;

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
    std::array<std::shared_ptr<WorkerPool>, 7> workers_;  ///< by when the requests can run
};

}  // namespace connector::interpreter::v1
