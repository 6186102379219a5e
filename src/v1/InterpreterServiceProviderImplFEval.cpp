#include <chrono>
#include <string>
#include <string_view>
#include <utility>

#include "cmddistributor/CmdRequest.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/InterpreterServiceProviderImpl.h"
#include "connector/wireWords.h"
#include "fl/i18n/text.h"
#include "v1/CallOutput.h"
#include "v1/NumoraFevalJsonResult.h"
#include "v1/PendingRequest.h"
#include "v1/RequestContextScope.h"
#include "v1/log.h"
#include "v1/queueTask.h"
#include "v1/requestFaults.h"
#include "v1/requestOptions.h"
#include "v1/waiting.h"
#include "v1/whenToDequeue.h"

namespace connector::interpreter::v1 {

namespace {

using cmddistributor::FEvalIIP;
using fl::i18n::to_string;
using ResultDelegate = cmddistributor::PromiseDelegateT<NumoraFevalJsonResult>;

constexpr const char* calledFunction = "connector.internal.fevalJSON";

std::string describe(const FEval& request) { return request.uuid() + ": " + to_string(request.function); }

void logEnqueuing(const FEval& request) {
    if (!log().isEnabled(Severity::Debug)) return;
    std::string line = "Enqueuing Feval: " + to_string(request.function) + '(';
    const char* separator = "";
    for (const auto& argument : request.arguments) {
        line += separator + to_string(argument);
        separator = ", ";
    }
    log().debug(line + ") :  dequeMode: " + request.dequeMode +
                ", timeoutMs: " + std::to_string(request.timeoutMs));
}

// The texts are moved out of the request.
std::shared_ptr<FEvalIIP::Data> argumentsOf(FEval& request) {
    auto data = std::make_shared<FEvalIIP::Data>();
    data->arguments.reserve(request.arguments.size() + 2);
    data->arguments.push_back(matrix::create(request.function));
    data->arguments.push_back(matrix::createScalar(request.nargout));
    for (auto& argument : request.arguments) data->arguments.push_back(matrix::create(std::move(argument)));
    return data;
}

void updateFEvalResponse(FEvalResponse& response, NumoraFevalJsonResult result) {
    response.results = result.takeResults();
    if (result.isError()) {
        response.isError = true;
        response.faults.push_back(codeFault(result.faultMessage(), to_string(result.faultId())));
    }
    if (log().isEnabled(Severity::Debug)) log().debug("Feval response: " + to_string(response.results));
}

}  // namespace

Future<std::unique_ptr<connector::Message>> InterpreterServiceProviderImpl::handle(
    std::unique_ptr<FEval>&& message) {
    const std::unique_ptr<FEval> request = std::move(message);
    const Context context = common::ContextState::current();
    if (request->dequeMode.empty()) request->dequeMode = configuredDequeMode();
    auto response = std::make_unique<FEvalResponse>(request->uuid());
    const auto token = std::make_shared<CallToken>();
    if (const char* const refusal = admitCall(token)) {
        response->faults.emplace_back(wire::faultCode::code, refusal);
    } else {
        const RequestContextScope scope(context);
        callFunction(*token, *response, *request, context);
        dismiss(token);
        if (token->isGivenUp()) token->logLateEnd("FEval " + describe(*request));
    }
    return makeReadyFuture<std::unique_ptr<connector::Message>>(std::move(response));
}

const char* InterpreterServiceProviderImpl::admitCall(const std::shared_ptr<PendingRequest>& token) {
    MutexLock lock(mutex_);
    if (const char* const reason = unavailability()) return reason;
    pending_.push_back(token);
    return nullptr;
}

const char* InterpreterServiceProviderImpl::unavailability() const {
    if (!zvm_) return "NUMORA not available.";
    if (!zvm_->isAvailable()) return "NUMORA not active.";
    return isRunning() ? nullptr : "NUMORA service not running.";
}

void InterpreterServiceProviderImpl::callFunction(CallToken& token, FEvalResponse& response, FEval& request,
                                                  const Context& context) {
    try {
        sendFEvalRequest(token, response, request, context);
    } catch (const FEvalResultError& error) {
        log().warning("FEval " + describe(request) + " errored: " + error.what());
        response.faults.emplace_back(wire::faultCode::code, error.what());
    } catch (const std::exception& error) {
        addFault(response, error, "FEval", describe(request));
    } catch (...) {
        log().warning("FEval " + describe(request) + " had unknown error");
        response.faults.emplace_back(wire::faultCode::code, "Unknown NUMORA error.");
    }
}

void InterpreterServiceProviderImpl::sendFEvalRequest(CallToken& token, FEvalResponse& response,
                                                      FEval& request, const Context& context) {
    logEnqueuing(request);
    const auto output = std::make_shared<CallOutput>(request.outputMode != "ignore");
    auto options = requestOptions(*context, whenToDequeue(request.dequeMode), "FEval",
                                  [output](const auto& event) { output->write(printableText(event)); });
    options.setOutSink(output->sink());
    options.setErrSink(output->sink());
    const auto extract = [output, name = describe(request)](const cmddistributor::IIPResult& result) {
        output->writeToLog(name);
        return NumoraFevalJsonResult::extract(result);
    };
    foundation::msg_svc::exchange::IDType id;
    auto call = queueRequest(zvm_, options,
                             std::make_shared<cmddistributor::FEvalCmdRequest>(
                                 calledFunction, 1, argumentsOf(request), cmddistributor::IqmStreamID::User,
                                 options.getOutSink(), options.getErrSink()),
                             std::make_shared<ResultDelegate>(token.promise(), extract), &id);
    token.setQueued({call});
    call.setReadyToExecute();
    awaitResult(token, response, request, id);
}

void InterpreterServiceProviderImpl::awaitResult(CallToken& token, FEvalResponse& response,
                                                 const FEval& request,
                                                 foundation::msg_svc::exchange::IDType id) {
    auto future = token.promise()->getFuture();
    const std::chrono::milliseconds limit(request.timeoutMs);
    const std::chrono::milliseconds slice(limit.count() > 0 ? 100 : 10);
    switch (waitInSlices(future, slice, limit, [this] { return unavailability() == nullptr; })) {
        case WaitEnd::Resolved:
            updateFEvalResponse(response, future.get());
            return;
        case WaitEnd::TimedOut:
            log().warning("FEval timeout: " + describe(request));
            // Nobody else would stop a function that does not end.
            zvm_->interrupt(id);
            response.isError = true;
            response.faults.emplace_back(
                wire::faultCode::timeout,
                "FEval timed out after " + std::to_string(request.timeoutMs) + " milliseconds");
            break;
        case WaitEnd::GivenUp:
            if (const char* const reason = unavailability()) {
                response.faults.emplace_back(wire::faultCode::code, reason);
            }
            break;
    }
    token.giveUp();
}

}  // namespace connector::interpreter::v1
