// What the streaming service does with one request, from its arrival to its completion.

#include <stdexcept>
#include <utility>

#include <Poco/Dynamic/Var.h>

#include "cmddistributor/CmdRequest.h"
#include "connector/common/RequestOrigin.h"
#include "connector/common/productName.h"
#include "connector/common/requests.h"
#include "connector/ddux/ddux.h"
#include "connector/errorText.h"
#include "connector/interpreter/v1/AsyncEvalService.h"
#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "connector/wireWords.h"
#include "fl/i18n/text.h"
#include "services/window.h"
#include "v1/StreamedRequest.h"
#include "v1/StreamingEvalPlugin.h"
#include "v1/TypedInput.h"
#include "v1/log.h"
#include "v1/queueTask.h"
#include "v1/requestOptions.h"

namespace connector::interpreter::v1 {

using cmddistributor::WhenToDequeue;
using connector::common::DataBuffer;

namespace {

constexpr const char* dduxSource = "NUMORA_WORKER";

// What its client is told of a request that is not carried out.
struct Refused : std::invalid_argument {
    Refused(int status, const std::string& reason) : std::invalid_argument(reason), refusal{status, reason} {}

    common::RequestRefusal refusal;
};

void refuse(common::ContextState& context, const common::RequestRefusal& refusal) {
    context.set(common::RequestRefusal::contextKey, refusal);
}

void logIssue(Severity severity, const std::string& what) {
    if (!asyncLog().isEnabled(severity)) return;
    asyncLog().write(severity, "Unknown issue in AsyncEvalService::handleEvalRequest");
    asyncLog().write(severity, "What it was: " + what);
}

// The text of a JSON string.  Throws: json::ParseError; Refused, for another value.
std::u16string textOf(const std::string& json) {
    const auto value = json::parse(json);
    if (value.type() != typeid(std::string)) throw Refused(400, "data must be a string");
    return fl::i18n::codecvt_string_to_ustring("UTF-8")(value.extract<std::string>());
}

// Whether a request is input for code that reads some, and not code.  Throws: Refused.
bool isTypedInput(const common::ContextState& context) {
    if (!context.has(common::RequestOrigin::forPrompt)) return services::prompt::detail::isInCharBufferMode();
    const auto prompt = context.getOr<std::uint64_t>(common::RequestOrigin::forPrompt, 0);
    if (prompt == 0) return false;
    if (prompt != services::prompt::promptNumber()) throw Refused(409, "the prompt is gone");
    return true;
}

// The body is not JSON, or the queue of the interpreter is full.
bool isFromClient(const std::exception& error) {
    return dynamic_cast<const json::ParseError*>(&error) != nullptr ||
           dynamic_cast<const cmddistributor::RuntimeException*>(&error) != nullptr;
}

bool isSuccess(Future<void>& ended) {
    try {
        ended.get();
        return true;
    } catch (...) {
        return false;
    }
}

std::string dduxPayload(const std::string& clientType) {
    return R"({"clientType":)" + json::quoted(clientType) + R"(,"product":)" +
           json::quoted(common::getProductNameByClientType(clientType)) + "}";
}

}  // namespace

void AsyncEvalService::handleEvalRequest(const message_service::JsonMessage& message) {
    try {
        if (asyncLog().isEnabled(Severity::Debug)) asyncLog().debug("Eval request: " + message.data);
        const auto& context = message.context;
        HeldContext held(context);
        const auto clientType = context->getOr<std::string>("clientType", {});
        if (services_.requestTracker && !clientType.empty()) {
            catchAndLog("requestStarted",
                        [&] { services_.requestTracker->requestStarted(clientType, context); });
        }
        TrackedEnd end(services_.requestTracker, clientType, context);
        if (!services_.requestGate || !services_.requestGate->isOpen()) {
            asyncLog().debug("The gate is closed; the request is dropped.");
            refuse(*context, {503, "the interpreter does not take requests now"});
            return;
        }
        auto text = textOf(message.data);
        const bool isInput = isTypedInput(*context);
        if (isInput) answerPrompt(context->getOr<std::uint64_t>(common::RequestOrigin::forPrompt, 0), text);
        end.release();  // what sends the request ends it
        if (isInput) {
            sendRawCharsToBuffer(std::move(text), clientType, held.release(), context);
        } else {
            sendEvalRequest(std::move(text), clientType, held.release(), context);
        }
    } catch (const Refused& refused) {
        refuse(*message.context, refused.refusal);
        logIssue(Severity::Debug, refused.what());
    } catch (const std::exception& error) {
        // Clients can make as many as they like of their own errors.
        logIssue(isFromClient(error) ? Severity::Debug : Severity::Error, errorText(error));
    } catch (...) {
        logIssue(Severity::Error, "no standard exception");
    }
}

// Of two lines that come for one prompt at the same time, the second has nobody who reads it.
void AsyncEvalService::answerPrompt(std::uint64_t prompt, const std::u16string& characters) {
    if (prompt == 0) return;
    const bool isLine = characters.find_first_of(u"\r\n") != std::u16string::npos;
    if ((isLine ? answeredPrompt_.exchange(prompt) : answeredPrompt_.load()) == prompt) {
        throw Refused(409, "the prompt is gone");
    }
}

void AsyncEvalService::sendEvalRequest(std::u16string code, const std::string& clientType,
                                       std::uint64_t contextHandle,
                                       const std::shared_ptr<common::ContextState>& context) {
    HeldContext held(contextHandle);
    const auto printed = std::make_shared<PrintedText>(coalescer_, context);
    const auto request = std::make_shared<StreamedRequest>(services_.requestTracker, clientType,
                                                           std::move(held), context, printed);
    auto completion = completionOf(request);
    catchAndLog("sendDduxRequest", [&] { sendDduxRequest(dduxPayload(clientType)); });
    if (!services_.zvm) throw std::runtime_error("No interpreter is available.");
    if (services_.shadowService && !services_.shadowService->isReady()) {
        throw std::runtime_error("The clients' files are not ready.");
    }

    context->set("streamingEval", true);
    auto options = clientOptions(*context, WhenToDequeue::Default, contextHandle);
    options.setOutSink(PrintedText::sink(printed, &PrintedText::out));
    options.setErrSink(PrintedText::sink(printed, &PrintedText::err));
    options.setCallbackImpl([weak = weak_from_this()](const nmutil::io::PrintableErrorEvent& event) {
        if (asyncLog().isEnabled(Severity::Debug)) {
            asyncLog().debug("Async sendEvalRequest PrintableErrorEvent triggered: id:" + event.getID() +
                             ", text:" + fl::i18n::to_string(event.getText()));
        }
        if (const auto self = weak.lock()) self->handlePrintableError(event);
    });
    release(*request,
            queueRequest(services_.zvm, options,
                         std::make_shared<cmddistributor::EvalCmdRequest>(
                             false, cmddistributor::IqmStreamID::User, options.getOutSink(),
                             options.getErrSink(), std::move(code), StreamingEvalPlugin::registeredName),
                         std::move(completion)));
}

void AsyncEvalService::sendRawCharsToBuffer(std::u16string characters, const std::string& clientType,
                                            std::uint64_t contextHandle,
                                            const std::shared_ptr<common::ContextState>& context) {
    HeldContext held(contextHandle);
    const auto request = std::make_shared<StreamedRequest>(services_.requestTracker, clientType,
                                                           std::move(held), context, nullptr);
    auto completion = completionOf(request);
    if (asyncLog().isEnabled(Severity::Debug)) {
        asyncLog().debug("Typing chars into type ahead:" + fl::i18n::to_string(characters));
    }
    if (!services_.zvm) throw std::runtime_error("No interpreter is available.");
    const auto type = [characters = std::move(characters),
                       prompt = context->getOr<std::uint64_t>(common::RequestOrigin::forPrompt, 0)] {
        asyncLog().debug("Posting key typing:");
        typeAtPrompt(characters, prompt);
    };
    release(*request, queueTask(services_.zvm, clientOptions(*context, WhenToDequeue::Prompt, contextHandle),
                                type, std::move(completion)));
}

void AsyncEvalService::release(StreamedRequest& request, zvm::detail::CmdDistributorTaskReference task) {
    request.ofClient.set([task]() mutable { task.cancel(false); });
    task.setReadyToExecute();
}

// The delegate alone holds the promise: a request that is not queued, or that the queue drops, ends with it.
std::shared_ptr<cmddistributor::PromiseDelegate> AsyncEvalService::completionOf(
    std::shared_ptr<StreamedRequest> request) {
    auto promise = std::make_shared<Promise<void>>();
    promise->getFuture().then([weak = weak_from_this(), request = std::move(request)](Future<void> ended) {
        // What other threads of the code print from now on belongs to no request.
        if (request->printed) request->printed->stop();
        if (const auto self = weak.lock()) self->complete(*request, isSuccess(ended));
        request->endForClient();
        request->end.tell();
    });
    return std::make_shared<cmddistributor::PromiseDelegateT<void>>(std::move(promise),
                                                                    [](const cmddistributor::IIPResult&) {});
}

// Each step is taken whatever becomes of the others.
void AsyncEvalService::complete(StreamedRequest& request, bool isSuccess) {
    const common::CurrentContext context(request.context);
    // What could not be typed has answered nothing.
    auto prompt = request.context->getOr<std::uint64_t>(common::RequestOrigin::forPrompt, 0);
    if (!isSuccess) answeredPrompt_.compare_exchange_strong(prompt, 0);
    catchAndLog("flush", [&] { flush(); });
    request.endForClient();
    catchAndLog("completion", [&] {
        publish(wire::channel::completion,
                DataBuffer(json::quoted(isSuccess ? wire::completion::success : wire::completion::failure)));
    });
    if (request.printed) catchAndLog("sendDduxResponse", [&] { sendDduxResponse(); });
}

void AsyncEvalService::sendDduxRequest(const std::string& payload) {
    const bool isEnabled = ddux::isDduxEnabled();
    dduxEnabled_ = isEnabled;
    coalescer_->setDduxEnabled(isEnabled);
    if (!isEnabled) return;
    ddux::logEvent(std::make_unique<ddux::DduxControlMessage>(dduxSource, "MCODE_EVAL_REQUEST", payload));
}

void AsyncEvalService::sendDduxResponse() {
    if (!dduxEnabled_) return;
    // What was printed is deliberately not sent.
    ddux::logEvent(std::make_unique<ddux::DduxControlMessage>(dduxSource, "MCODE_EVAL_RESPONSE", ""));
    coalescer_->clearDduxData();
}

}  // namespace connector::interpreter::v1
