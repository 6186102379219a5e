#include "connector/interpreter/v1/InterpreterServiceProviderImpl.h"

#include <chrono>
#include <limits>
#include <locale>
#include <sstream>
#include <thread>
#include <utility>

#include "cmddistributor/RuntimeException.h"
#include "connector/interpreter/ConnectorCmdWinSink.h"
#include "connector/interpreter/ConnectorEvalCmdRequest.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/InterruptResponse.h"
#include "connector/zvm_common/contextState.h"
#include "fl/i18n/text.h"
#include "services/interrupts.h"
#include "services/prompt/prompt.h"
#include "v1/PendingRequest.h"
#include "v1/StartupWakeUp.h"
#include "v1/log.h"
#include "v1/queueTask.h"
#include "v1/requestOptions.h"

namespace connector::interpreter::v1 {

namespace {

using cmddistributor::PromiseDelegateT;
using cmddistributor::WhenToDequeue;
using MessageFuture = Future<std::unique_ptr<connector::Message>>;
using StatusDelegate = PromiseDelegateT<ConnectorExecutionStatuses>;

constexpr auto availabilityCheckInterval = std::chrono::milliseconds(10);
constexpr auto releasePatience = std::chrono::milliseconds(500);
constexpr const char* codeError = "NUMORA.CodeError";

MessageFuture ready(std::unique_ptr<connector::Message> response) {
    return makeReadyFuture<std::unique_ptr<connector::Message>>(std::move(response));
}

std::string describe(const Eval& request) {
    return request.uuid() + ": " + fl::i18n::to_string(request.mcode);
}

std::int32_t promptTypeOf(nmutil::prompt::InputRequester requester) {
    switch (static_cast<std::uint32_t>(requester)) {
        case 1:
        case 6:
        case 10:
        case 11:
        case 13:
            return 1;
        case 2:
            return 3;
        case 3:
            return 2;
        case 4:
        case 7:
        case 8:
        case std::numeric_limits<std::uint32_t>::max():
            return 4;
        default:
            return 0;
    }
}

std::uint64_t nowMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

/// Keeps a request in the pending list for as long as it is being handled.
class InterpreterServiceProviderImpl::PendingScope {
public:
    /// Waits for the start-up, too, with the list's mutex held.
    explicit PendingScope(InterpreterServiceProviderImpl& provider)
        : provider_(provider), token_(std::make_shared<PendingPromise<ConnectorExecutionStatuses>>()) {
        MutexLock lock(provider_.mutex_);
        StartupWakeUp::await();
        provider_.pending_.push_back(token_);
    }
    ~PendingScope() {
        MutexLock lock(provider_.mutex_);
        provider_.pending_.remove_if([this](const std::weak_ptr<PendingRequest>& entry) {
            const auto held = entry.lock();
            return !held || held == token_;
        });
    }
    PendingScope(const PendingScope&) = delete;
    PendingScope& operator=(const PendingScope&) = delete;

    const std::shared_ptr<StatusPromise>& promise() const { return token_->promise(); }

private:
    InterpreterServiceProviderImpl& provider_;
    const std::shared_ptr<PendingPromise<ConnectorExecutionStatuses>> token_;
};

namespace {

/// Keeps the context on the host's stack, and current on this thread, for as long as a request is being
/// handled.
class ContextScope {
public:
    explicit ContextScope(const std::shared_ptr<common::ContextState>& context)
        : handle_(zvm_common::pushContextState(context)), current_(context) {}
    ~ContextScope() { zvm_common::removeContextState(handle_); }
    ContextScope(const ContextScope&) = delete;
    ContextScope& operator=(const ContextScope&) = delete;

private:
    const std::uint64_t handle_;
    const common::CurrentContext current_;
};

}  // namespace

InterpreterServiceProviderImpl::InterpreterServiceProviderImpl(
    const std::shared_ptr<configuration::Configuration>& configuration, std::shared_ptr<zvm::ZVM> zvm)
    : zvm_(std::move(zvm)) {
    constexpr const char* key = "connector.interpreter.dequeMode";
    listeners_.push_back(configuration->subscribe(
        key,
        std::make_shared<reactive_streams::CallbackSubscriber>([this](const reactive_streams::Value& value) {
            if (const auto* mode = boost::get<std::string>(&value)) {
                MutexLock lock(mutex_);
                dequeMode_ = *mode;
            }
        })));
    std::string mode = configuration->getText(key, "default");
    MutexLock lock(mutex_);
    dequeMode_ = std::move(mode);
}

InterpreterServiceProviderImpl::~InterpreterServiceProviderImpl() = default;

MessageFuture InterpreterServiceProviderImpl::handle(std::unique_ptr<Eval>&& message) {
    const std::unique_ptr<Eval> request = std::move(message);
    const Context context = common::ContextState::current();
    auto response = std::make_unique<EvalResponse>(request->uuid());
    if (isStale(*context)) return ready(std::move(response));
    if (!isInterpreterAvailable() || !isRunning()) {
        response->isError = true;
        response->faults.emplace_back(codeError, "NUMORA not available.");
        return ready(std::move(response));
    }
    {
        const PendingScope pending(*this);
        const ContextScope scope(context);
        const auto send = services::prompt::detail::isInCharBufferMode()
                              ? &InterpreterServiceProviderImpl::sendRawCharsToBuffer
                              : &InterpreterServiceProviderImpl::sendEvalRequest;
        try {
            (this->*send)(pending.promise(), *response, *request, context);
        } catch (const cmddistributor::RuntimeException& error) {
            if (error.getExecutionStatus() == nmutil::cmddistributor::EXECUTION_CANCELLED) {
                log().warning("Eval request cancelled before starting: " + describe(*request));
                response->faults.emplace_back(codeError, "Request was cancelled before starting.");
            } else {
                log().warning("Eval " + describe(*request) + " errored: " + error.what());
                response->faults.emplace_back(codeError, "Error while executing eval request.");
            }
        } catch (const std::exception& error) {
            log().warning("Eval " + describe(*request) + " errored: " + error.what());
            response->faults.emplace_back(codeError, "Error while executing eval request.");
        } catch (...) {
            log().warning("Eval " + describe(*request) + " had unknown error");
            response->faults.emplace_back(codeError, "Error while executing eval request.");
        }
    }
    return ready(std::move(response));
}

void InterpreterServiceProviderImpl::sendEvalRequest(const std::shared_ptr<StatusPromise>& promise,
                                                     EvalResponse& response, const Eval& request,
                                                     const Context& context) {
    if (log().isEnabled(Severity::Debug))
        log().debug("Enqueuing eval: " + fl::i18n::to_string(request.mcode));
    const auto options = requestOptions(*context, WhenToDequeue::Default, "sendEvalRequest");
    foundation::msg_svc::exchange::IDType id;
    queueRequest(
        zvm_, options,
        std::make_shared<ConnectorEvalCmdRequest>(request.mcode, promise, request.width, request.height,
                                                  options.getOutSink(), options.getErrSink()),
        std::make_shared<StatusDelegate>(promise), &id)
        .setReadyToExecute();
    awaitStatuses(promise->getFuture(), response, request, id);
}

void InterpreterServiceProviderImpl::sendRawCharsToBuffer(const std::shared_ptr<StatusPromise>& promise,
                                                          EvalResponse& response, const Eval& request,
                                                          const Context& context) {
    if (log().isEnabled(Severity::Debug)) {
        log().debug("Typing chars into type ahead:" + fl::i18n::to_string(request.mcode));
    }
    const auto type = [promise, characters = request.mcode] {
        log().debug("Posting key typing:");
        ConnectorCmdWinSink::preEval(promise);
        for (const char16_t unit : characters) services::io::rawModeCharHandler(unit);
    };
    auto typing = queueTask(zvm_, requestOptions(*context, WhenToDequeue::Prompt, "sendRawCharsToBuffer"),
                            type, std::make_shared<StatusDelegate>(promise));
    // Closes the level once the code that reads the characters has ended. Queued before the first is let go:
    // either both run or none.
    queueTask(
        zvm_, cmddistributor::RunOptions(), [] { ConnectorCmdWinSink::postEval(); }, nullptr)
        .setReadyToExecute();
    typing.setReadyToExecute();
    awaitStatuses(promise->getFuture(), response, request, {});
}

void InterpreterServiceProviderImpl::awaitStatuses(Future<ConnectorExecutionStatuses> future,
                                                   EvalResponse& response, const Eval& request,
                                                   foundation::msg_svc::exchange::IDType id) {
    if (request.timeoutMs > 0) {
        if (!future.waitFor(std::chrono::milliseconds(request.timeoutMs))) {
            reportTimeout(response, request, id);
            future.then([uuid = request.uuid()](const Future<ConnectorExecutionStatuses>&) {
                log().warning("Eval " + uuid + " ended after it had been given up; its result is dropped");
            });
            return;
        }
    } else if (!waitWhileAvailable(future)) {
        updateEvalResponse(response);
        return;
    }
    ConnectorExecutionStatuses statuses = future.get();
    updateEvalResponse(response, statuses);
}

// True when the result came. The slices bound how long a vanished interpreter keeps the request; a result
// that comes ends the wait at once.
bool InterpreterServiceProviderImpl::waitWhileAvailable(
    const Future<ConnectorExecutionStatuses>& future) const {
    while (!future.waitFor(availabilityCheckInterval)) {
        if (!zvm_->isAvailable() || !isRunning()) return future.isReady();
        std::this_thread::yield();
    }
    return true;
}

void InterpreterServiceProviderImpl::reportTimeout(EvalResponse& response, const Eval& request,
                                                   foundation::msg_svc::exchange::IDType id) {
    log().warning("Eval request timed out: " + describe(request));
    // Typed input is read by code of another request, which is what this one waits for.
    if (id.value == 0) {
        zvm_->interrupt();
    } else {
        zvm_->interrupt(id);
    }
    updateEvalResponse(response);
    response.isError = true;
    response.faults.emplace_back(
        "Request.Timeout", "Eval timed out after " + std::to_string(request.timeoutMs) + " milliseconds");
    std::ostringstream notice;
    notice.imbue(std::locale::classic());
    notice << "NUMORA operation interrupted. Operation(s) taking longer than " << request.timeoutMs / 1000.0
           << " seconds are not supported for this product offering.";
    response.responseStr += fl::i18n::to_ustring(notice.str());
}

void InterpreterServiceProviderImpl::updateEvalResponse(EvalResponse& response,
                                                        ConnectorExecutionStatuses& statuses) {
    response.responseStr += statuses.output;
    response.isError = statuses.hadReportableError;
    response.faults = std::move(statuses.faults);
    response.clearCommandWindow = statuses.clcCalled;
    response.promptType = promptTypeOf(statuses.inputRequester);
    log().debug(response.isError ? "Eval complete, error? true" : "Eval complete, error? false");
}

void InterpreterServiceProviderImpl::updateEvalResponse(const EvalResponse& response) {
    log().warning("Eval " + response.uuid() + " timed out but ZVM didn't cancel it");
}

bool InterpreterServiceProviderImpl::isStale(const common::ContextState& context) {
    const auto started = context.getOr("requestStartTime", std::numeric_limits<std::uint64_t>::max());
    MutexLock lock(mutex_);
    return started < lastInterrupt_;
}

MessageFuture InterpreterServiceProviderImpl::handle(std::unique_ptr<FEval>&& message) {
    auto response = std::make_unique<FEvalResponse>(message->uuid());
    response->isError = true;
    response->faults.emplace_back(codeError, "Function calls are not available yet.");
    return ready(std::move(response));
}

MessageFuture InterpreterServiceProviderImpl::handle(std::unique_ptr<Interrupt>&& message) {
    log().info("Received interrupt request from client");
    auto response = std::make_unique<InterruptResponse>(message->uuid());
    MutexLock lock(mutex_);
    lastInterrupt_ = nowMs();
    if (isInterpreterAvailable()) {
        zvm_->interrupt();
    } else {
        response->faults.emplace_back(codeError, "NUMORA not available.");
    }
    releasePendingLocked();
    lock.unlock();
    return ready(std::move(response));
}

void InterpreterServiceProviderImpl::doStop() {
    MutexLock lock(mutex_);
    if (pending_.empty()) return;
    utInterruptState::instance().SetInterruptPending(true);
    releasePendingLocked();
}

void InterpreterServiceProviderImpl::releasePendingLocked() {
    // One deadline for all, so that many pending requests do not add up to a long wait.
    const auto deadline = std::chrono::steady_clock::now() + releasePatience;
    for (const auto& entry : pending_) {
        if (const auto token = entry.lock()) token->release(deadline);
    }
    pending_.clear();
}

}  // namespace connector::interpreter::v1
