#include "connector/interpreter/v1/InterpreterServiceProviderImpl.h"

#include <chrono>
#include <limits>
#include <locale>
#include <sstream>
#include <utility>

#include "connector/common/requests.h"
#include "connector/interpreter/ConnectorEvalCmdRequest.h"
#include "connector/interpreter/v1/InterruptResponse.h"
#include "connector/wireWords.h"
#include "fl/i18n/text.h"
#include "iqm/Iqm.h"
#include "services/interrupts.h"
#include "services/window.h"
#include "v1/PendingRequest.h"
#include "v1/RequestContextScope.h"
#include "v1/StartupWakeUp.h"
#include "v1/TypedInput.h"
#include "v1/log.h"
#include "v1/queueTask.h"
#include "v1/requestFaults.h"
#include "v1/requestOptions.h"
#include "v1/waiting.h"

namespace connector::interpreter::v1 {

namespace {

using cmddistributor::PromiseDelegateT;
using cmddistributor::WhenToDequeue;
using MessageFuture = Future<std::unique_ptr<connector::Message>>;
using StatusDelegate = PromiseDelegateT<ConnectorExecutionStatuses>;

constexpr auto availabilityCheckInterval = std::chrono::milliseconds(10);
constexpr auto releasePatience = std::chrono::milliseconds(500);

MessageFuture ready(std::unique_ptr<connector::Message> response) {
    return makeReadyFuture<std::unique_ptr<connector::Message>>(std::move(response));
}

// Without its code, which only records for debugging hold.
std::string describe(const Eval& request) { return request.uuid(); }

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

// One for the interpreter's own wait and all requests, so that these do not add up to a long one.
std::chrono::steady_clock::time_point releaseDeadline() {
    return std::chrono::steady_clock::now() + releasePatience;
}

std::uint64_t nowMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

/// The configured deque mode.
struct InterpreterServiceProviderImpl::DequeMode {
    Mutex mutex;
    std::string value CONNECTOR_GUARDED_BY(mutex) = "ppe";
    bool isChanged CONNECTOR_GUARDED_BY(mutex) =
        false;  ///< by the listener, whose value is newer than the one first read
};

InterpreterServiceProviderImpl::InterpreterServiceProviderImpl(
    const std::shared_ptr<configuration::Configuration>& configuration, std::shared_ptr<zvm::ZVM> zvm)
    : zvm_(std::move(zvm)),
      dequeMode_(std::make_shared<DequeMode>()),
      typedLevels_(std::make_shared<TypedLevels>(zvm_)) {
    constexpr const char* key = "connector.interpreter.dequeMode";
    const auto listener = [state = dequeMode_](const reactive_streams::Value& value) {
        const auto* mode = boost::get<std::string>(&value);
        if (mode == nullptr) return;
        MutexLock lock(state->mutex);
        state->value = *mode;
        state->isChanged = true;
    };
    listeners_.push_back(
        configuration->subscribe(key, std::make_shared<reactive_streams::CallbackSubscriber>(listener)));
    std::string mode = configuration->getText(key, "default");
    MutexLock lock(dequeMode_->mutex);
    if (!dequeMode_->isChanged) dequeMode_->value = std::move(mode);
}

InterpreterServiceProviderImpl::~InterpreterServiceProviderImpl() = default;

std::string InterpreterServiceProviderImpl::configuredDequeMode() const {
    MutexLock lock(dequeMode_->mutex);
    return dequeMode_->value;
}

MessageFuture InterpreterServiceProviderImpl::handle(std::unique_ptr<Eval>&& message) {
    const std::unique_ptr<Eval> request = std::move(message);
    const Context context = common::ContextState::current();
    auto response = std::make_unique<EvalResponse>(request->uuid());
    const auto token = std::make_shared<StatusToken>();
    switch (admit(token, *context)) {
        case Admission::Admitted: {
            const RequestContextScope scope(context);
            evaluate(*token, *response, *request, context);
            dismiss(token);
            if (token->isGivenUp()) token->logLateEnd("Eval " + request->uuid());
            break;
        }
        case Admission::Stale:
            context->set("requestDropped", true);  // for who sends the response, which does not tell
            break;
        case Admission::Unavailable:
            response->isError = true;
            response->faults.emplace_back(wire::faultCode::code, "NUMORA not available.");
            break;
    }
    return ready(std::move(response));
}

InterpreterServiceProviderImpl::Admission InterpreterServiceProviderImpl::admit(
    const std::shared_ptr<PendingRequest>& token, const common::ContextState& context) {
    // Under the mutex that an interrupt and a stop take, so that neither can miss a request.
    MutexLock lock(mutex_);
    if (isStaleLocked(context)) return Admission::Stale;
    if (!isInterpreterAvailable() || !isRunning()) return Admission::Unavailable;
    StartupWakeUp::await();
    pending_.push_back(token);
    return Admission::Admitted;
}

void InterpreterServiceProviderImpl::dismiss(const std::shared_ptr<PendingRequest>& token) {
    MutexLock lock(mutex_);
    pending_.remove_if([&token](const std::weak_ptr<PendingRequest>& entry) {
        const auto held = entry.lock();
        return !held || held == token;
    });
}

void InterpreterServiceProviderImpl::evaluate(StatusToken& token, EvalResponse& response, const Eval& request,
                                              const Context& context) {
    const auto send = services::prompt::detail::isInCharBufferMode()
                          ? &InterpreterServiceProviderImpl::sendRawCharsToBuffer
                          : &InterpreterServiceProviderImpl::sendEvalRequest;
    try {
        (this->*send)(token, response, request, context);
    } catch (const std::exception& error) {
        addFault(response, error, "Eval", describe(request));
    } catch (...) {
        log().warning("Eval " + describe(request) + " had unknown error");
        response.faults.emplace_back(wire::faultCode::code, "Error while executing eval request.");
    }
}

void InterpreterServiceProviderImpl::sendEvalRequest(StatusToken& token, EvalResponse& response,
                                                     const Eval& request, const Context& context) {
    if (log().isEnabled(Severity::Debug))
        log().debug("Enqueuing eval: " + fl::i18n::to_string(request.mcode));
    const auto options = requestOptions(*context, WhenToDequeue::Default, "sendEvalRequest");
    foundation::msg_svc::exchange::IDType id;
    auto evaluation = queueRequest(
        zvm_, options,
        std::make_shared<ConnectorEvalCmdRequest>(request.mcode, token.promise(), request.width,
                                                  request.height, options.getOutSink(), options.getErrSink()),
        std::make_shared<StatusDelegate>(token.promise()), &id);
    token.setQueued({evaluation});
    evaluation.setReadyToExecute();
    awaitStatuses(token, response, request, [this, id] { zvm_->interrupt(id); });
}

void InterpreterServiceProviderImpl::sendRawCharsToBuffer(StatusToken& token, EvalResponse& response,
                                                          const Eval& request, const Context& context) {
    if (log().isEnabled(Severity::Debug)) {
        log().debug("Typing chars into type ahead:" + fl::i18n::to_string(request.mcode));
    }
    const auto type = [token = token.shared_from_this(), promise = token.promise(), levels = typedLevels_,
                       characters = request.mcode] {
        log().debug("Posting key typing:");
        token->addQueued(levels->type(characters, promise));
    };
    auto typing = queueTask(zvm_, requestOptions(*context, WhenToDequeue::Prompt, "sendRawCharsToBuffer"),
                            type, std::make_shared<StatusDelegate>(token.promise()));
    token.setQueued({typing});
    typing.setReadyToExecute();
    // Once typed, the characters are read by code of another request, which is what this one waits for.
    awaitStatuses(token, response, request, [this, &token] {
        if (!token.withdraw()) zvm_->interrupt();
    });
}

void InterpreterServiceProviderImpl::awaitStatuses(StatusToken& token, EvalResponse& response,
                                                   const Eval& request,
                                                   const std::function<void()>& interrupt) {
    auto future = token.promise()->getFuture();
    const std::chrono::milliseconds limit(request.timeoutMs);
    const auto slice = limit.count() > 0 ? limit : availabilityCheckInterval;
    switch (waitInSlices(future, slice, limit, [this] { return isInterpreterAvailable() && isRunning(); })) {
        case WaitEnd::Resolved: {
            ConnectorExecutionStatuses statuses = future.get();
            updateEvalResponse(response, statuses);
            return;
        }
        case WaitEnd::TimedOut:
            log().warning("Eval request timed out: " + describe(request));
            interrupt();
            reportTimeout(response, request);
            break;
        case WaitEnd::GivenUp:
            updateEvalResponse(response);
            break;
    }
    token.giveUp();
}

void InterpreterServiceProviderImpl::reportTimeout(EvalResponse& response, const Eval& request) {
    updateEvalResponse(response);
    response.isError = true;
    response.faults.emplace_back(
        wire::faultCode::timeout,
        "Eval timed out after " + std::to_string(request.timeoutMs) + " milliseconds");
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

bool InterpreterServiceProviderImpl::isStaleLocked(const common::ContextState& context) const {
    constexpr auto never = std::numeric_limits<std::uint64_t>::max();
    if (context.has(common::requestArrival)) {
        return context.getOr(common::requestArrival, never) < lastInterruptArrival_;
    }
    return context.getOr("requestStartTime", never) < lastInterrupt_;
}

MessageFuture InterpreterServiceProviderImpl::handle(std::unique_ptr<Interrupt>&& message) {
    log().debug("Received interrupt request from client");
    auto response = std::make_unique<InterruptResponse>(message->uuid());
    // Not after the wait for the mutex: later requests would count as older.
    const std::uint64_t time = nowMs();
    const std::uint64_t arrival =
        common::ContextState::current()->getOr(common::requestArrival, common::arrivalNow());
    MutexLock lock(mutex_);
    const auto deadline = releaseDeadline();
    lastInterrupt_ = time;
    lastInterruptArrival_ = arrival;
    withdrawPendingLocked();
    if (isInterpreterAvailable()) {
        zvm_->interrupt();
    } else {
        response->faults.emplace_back(wire::faultCode::code, "NUMORA not available.");
    }
    releasePendingLocked(deadline);
    lock.unlock();
    return ready(std::move(response));
}

void InterpreterServiceProviderImpl::doStop() {
    MutexLock lock(mutex_);
    if (pending_.empty()) return;
    const auto deadline = releaseDeadline();
    withdrawPendingLocked();
    utInterruptState::SetInterruptPending(iqm::Iqm::instance().interruptState(), true);
    releasePendingLocked(deadline);
}

// What has not begun never will: it would otherwise start as soon as what runs now is interrupted.
void InterpreterServiceProviderImpl::withdrawPendingLocked() {
    for (const auto& entry : pending_) {
        if (const auto token = entry.lock()) token->withdraw();
    }
}

void InterpreterServiceProviderImpl::releasePendingLocked(std::chrono::steady_clock::time_point deadline) {
    for (const auto& entry : pending_) {
        if (const auto token = entry.lock()) token->release(deadline);
    }
    pending_.clear();
}

}  // namespace connector::interpreter::v1
