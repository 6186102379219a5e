#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "connector/Promise.h"
#include "connector/ThreadSafety.h"
#include "connector/common/ContextState.h"
#include "connector/configuration/Configuration.h"
#include "connector/interpreter/ConnectorExecutionStatuses.h"
#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/InterpreterServiceProvider.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "zvm/ZVM.h"

namespace connector::interpreter::v1 {

class PendingRequest;

/// Answers the requests of the interpreter service on a real interpreter.
///
/// Each `handle` blocks its thread until the request has been answered, timed out or released, and returns a
/// future that is resolved already. What goes wrong with a request becomes a fault of its response.
///
/// Threads: every operation from any thread but the interpreter's, any number at a time.
/// Locks: mutex_ guards what changes; it is not held while an evaluation runs, but it is while an interrupt
/// waits for requests that it releases (500 ms at most). It is taken before the start-up's mutex, and before
/// the state of a promise.
class InterpreterServiceProviderImpl : public InterpreterServiceProvider {
public:
    using StatusPromise = connector::Promise<ConnectorExecutionStatuses>;
    using Context = std::shared_ptr<connector::common::ContextState>;

    /// `zvm` is null where the environment has no interpreter; requests then get a fault.
    InterpreterServiceProviderImpl(
        const std::shared_ptr<connector::configuration::Configuration>& configuration,
        std::shared_ptr<zvm::ZVM> zvm);
    ~InterpreterServiceProviderImpl() override;

    using InterpreterServiceProvider::handle;
    connector::Future<std::unique_ptr<connector::Message>> handle(
        std::unique_ptr<Interrupt>&& message) override EXCLUDES(mutex_);
    connector::Future<std::unique_ptr<connector::Message>> handle(std::unique_ptr<FEval>&& message) override;
    /// Runs the code at the base prompt or, while the interpreter reads typed characters, types it.
    /// Throws: std::runtime_error, "Future state isn't valid!", when the module was not started.
    connector::Future<std::unique_ptr<connector::Message>> handle(std::unique_ptr<Eval>&& message) override
        EXCLUDES(mutex_);

protected:
    /// Interrupts what runs for pending requests and releases them.
    void doStop() override EXCLUDES(mutex_);

private:
    class PendingScope;

    /// Queues the code and waits for its end.  Throws: what queueing and running throw.
    void sendEvalRequest(const std::shared_ptr<StatusPromise>& promise, EvalResponse& response,
                         const Eval& request, const Context& context);
    /// Types the code into the type-ahead buffer, within a capture level of its own, and waits until that is
    /// closed.
    void sendRawCharsToBuffer(const std::shared_ptr<StatusPromise>& promise, EvalResponse& response,
                              const Eval& request, const Context& context);
    /// `id` names the request to interrupt when the time is up; none: whatever runs then.
    void awaitStatuses(connector::Future<ConnectorExecutionStatuses> future, EvalResponse& response,
                       const Eval& request, foundation::msg_svc::exchange::IDType id);
    bool waitWhileAvailable(const connector::Future<ConnectorExecutionStatuses>& future) const;
    void reportTimeout(EvalResponse& response, const Eval& request, foundation::msg_svc::exchange::IDType id);

    /// Copies what a finished evaluation reported into its response.
    static void updateEvalResponse(EvalResponse& response, ConnectorExecutionStatuses& statuses);
    /// For an evaluation whose statuses never came: leaves the response as it is.
    static void updateEvalResponse(const EvalResponse& response);

    bool isStale(const connector::common::ContextState& context) EXCLUDES(mutex_);
    bool isInterpreterAvailable() const { return zvm_ && zvm_->isAvailable(); }
    void releasePendingLocked() REQUIRES(mutex_);

    connector::Mutex mutex_;
    const std::shared_ptr<zvm::ZVM> zvm_;
    std::string dequeMode_ GUARDED_BY(mutex_) = "ppe";
    std::vector<std::unique_ptr<connector::reactive_streams::Canceller>> listeners_;
    std::list<std::weak_ptr<PendingRequest>> pending_ GUARDED_BY(mutex_);
    std::uint64_t lastInterrupt_ GUARDED_BY(mutex_) = 0;  ///< milliseconds of the system clock
};

}  // namespace connector::interpreter::v1
