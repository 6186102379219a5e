#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
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

class FEvalResponse;
class NumoraFevalJsonResult;
class PendingRequest;
class TypedLevels;
template <class T>
class PendingPromise;

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
        std::unique_ptr<Interrupt>&& message) override CONNECTOR_EXCLUDES(mutex_);
    /// Calls the function at the interpreter states that the request names. What the function prints goes to
    /// the log alone.
    connector::Future<std::unique_ptr<connector::Message>> handle(std::unique_ptr<FEval>&& message) override
        CONNECTOR_EXCLUDES(mutex_);
    /// Runs the code at the base prompt or, while the interpreter reads typed characters, types it.
    /// Throws: std::runtime_error, "Future state isn't valid!", when the module was not started.
    connector::Future<std::unique_ptr<connector::Message>> handle(std::unique_ptr<Eval>&& message) override
        CONNECTOR_EXCLUDES(mutex_);

protected:
    /// Interrupts what runs for pending requests and releases them.
    void doStop() override CONNECTOR_EXCLUDES(mutex_);

private:
    struct DequeMode;
    using StatusToken = PendingPromise<ConnectorExecutionStatuses>;
    using CallToken = PendingPromise<NumoraFevalJsonResult>;

    /// Takes a request into the pending list once the module has started, unless it is older than the last
    /// interrupt or there is no interpreter or service to run it.
    enum class Admission { Admitted, Stale, Unavailable };
    Admission admit(const std::shared_ptr<PendingRequest>& token,
                    const connector::common::ContextState& context) CONNECTOR_EXCLUDES(mutex_);
    void dismiss(const std::shared_ptr<PendingRequest>& token) CONNECTOR_EXCLUDES(mutex_);

    void evaluate(StatusToken& token, EvalResponse& response, const Eval& request, const Context& context);
    /// Queues the code and waits for its end.  Throws: what queueing and running throw.
    void sendEvalRequest(StatusToken& token, EvalResponse& response, const Eval& request,
                         const Context& context);
    /// Types the code into the type-ahead buffer, within a capture level of its own, and waits until that is
    /// closed. Where no code waits for it any more when its turn comes, nothing is typed and it counts as
    /// cancelled.
    void sendRawCharsToBuffer(StatusToken& token, EvalResponse& response, const Eval& request,
                              const Context& context);
    /// Waits for the result or the time limit; then `interrupt` stops what the request waits for.
    void awaitStatuses(StatusToken& token, EvalResponse& response, const Eval& request,
                       const std::function<void()>& interrupt);
    static void reportTimeout(EvalResponse& response, const Eval& request);

    /// Copies what a finished evaluation reported into its response.
    static void updateEvalResponse(EvalResponse& response, ConnectorExecutionStatuses& statuses);
    /// For an evaluation whose statuses never came: leaves the response as it is.
    static void updateEvalResponse(const EvalResponse& response);

    /// Takes a function call into the pending list. Returns null, or why the request is refused.
    const char* admitCall(const std::shared_ptr<PendingRequest>& token) CONNECTOR_EXCLUDES(mutex_);
    void callFunction(CallToken& token, FEvalResponse& response, FEval& request, const Context& context);
    /// Queues the call, with the arguments moved out of the request, and waits for its end.  Throws: what
    /// queueing and running throw.
    void sendFEvalRequest(CallToken& token, FEvalResponse& response, FEval& request, const Context& context);
    void awaitResult(CallToken& token, FEvalResponse& response, const FEval& request,
                     foundation::msg_svc::exchange::IDType id);
    /// Why no function can be called now; null when one can.
    const char* unavailability() const;
    std::string configuredDequeMode() const;

    bool isStaleLocked(const connector::common::ContextState& context) const CONNECTOR_REQUIRES(mutex_);
    bool isInterpreterAvailable() const { return zvm_ && zvm_->isAvailable(); }
    void withdrawPendingLocked() CONNECTOR_REQUIRES(mutex_);
    void releasePendingLocked(std::chrono::steady_clock::time_point deadline) CONNECTOR_REQUIRES(mutex_);

    connector::Mutex mutex_;
    const std::shared_ptr<zvm::ZVM> zvm_;
    const std::shared_ptr<DequeMode>
        dequeMode_;  ///< shared with the listener, which may outlive this object for a moment
    const std::shared_ptr<TypedLevels> typedLevels_;  ///< shared with tasks in the interpreter's queue
    std::vector<std::unique_ptr<connector::reactive_streams::Canceller>> listeners_;
    std::list<std::weak_ptr<PendingRequest>> pending_ CONNECTOR_GUARDED_BY(mutex_);
    std::uint64_t lastInterrupt_ CONNECTOR_GUARDED_BY(mutex_) = 0;  ///< milliseconds of the system clock
    std::uint64_t lastInterruptArrival_ CONNECTOR_GUARDED_BY(mutex_) =
        0;  ///< as connector::common::requestArrival
};

}  // namespace connector::interpreter::v1
