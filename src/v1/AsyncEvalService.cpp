#include "connector/interpreter/v1/AsyncEvalService.h"

#include <stdexcept>
#include <utility>

#include <Poco/Exception.h>

#include "cmddistributor/CmdRequest.h"
#include "connector/common/ClientRequests.h"
#include "connector/common/productName.h"
#include "connector/ddux/ddux.h"
#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "connector/wireWords.h"
#include "fl/i18n/text.h"
#include "iqm/plugins.h"
#include "services/window.h"
#include "v1/BatchOrder.h"
#include "v1/CountedSwitch.h"
#include "v1/FlushingStreamBuf.h"
#include "v1/HeldContext.h"
#include "v1/Publisher.h"
#include "v1/StreamingEvalPlugin.h"
#include "v1/TypedInput.h"
#include "v1/guarded.h"
#include "v1/log.h"
#include "v1/queueTask.h"
#include "v1/requestOptions.h"

namespace connector::interpreter::v1 {

using cmddistributor::WhenToDequeue;
using connector::common::ClientRequests;
using connector::common::DataBuffer;
using message_service::MessageService;

namespace {

constexpr const char* dduxSource = "NUMORA_WORKER";

// Does not hold the service, which a batch may outlive.
CoalescingTextBuffer::Callback batchPublisher(std::shared_ptr<Publisher> publisher) {
    return [publisher = std::move(publisher)](DataBuffer&& batch, nmutil::io::StreamTypeEnum type) {
        publisher->publish(type == nmutil::io::STANDARD_OUTPUT ? wire::channel::output : wire::channel::error,
                           batch);
    };
}

// The text of a JSON string.  Throws: json::ParseError; Poco::BadCastException, for another value.
std::u16string textOf(const std::string& text) {
    return fl::i18n::codecvt_string_to_ustring("UTF-8")(json::parse(text).extract<std::string>());
}

// A body that is no JSON string, or more requests than there may be.
bool isOfClient(const std::exception& error) {
    return dynamic_cast<const json::ParseError*>(&error) != nullptr ||
           dynamic_cast<const Poco::Exception*>(&error) != nullptr ||
           dynamic_cast<const cmddistributor::RuntimeException*>(&error) != nullptr;
}

// The stream buffers of one evaluation. They share the coalescer, because the interpreter may hold on to
// them for longer than the service lives.
struct PrintedText {
    explicit PrintedText(std::shared_ptr<CoalescingTextBuffer> buffer)
        : coalescer(std::move(buffer)),
          out(*coalescer, nmutil::io::STANDARD_OUTPUT),
          err(*coalescer, nmutil::io::STANDARD_ERROR) {}

    static std::shared_ptr<nmutil::io::NMSink> sink(const std::shared_ptr<PrintedText>& self,
                                                    FlushingStreamBuf PrintedText::*stream) {
        return std::make_shared<nmutil::io::NMSink>(
            std::shared_ptr<nmutil::io::UnicodeStreamBuf>(self, &((*self).*stream)),
            cmddistributor::RunOptions::getDefaultSinkTraits());
    }
    void stop() {
        out.stop();
        err.stop();
    }

    const std::shared_ptr<CoalescingTextBuffer> coalescer;
    FlushingStreamBuf out;
    FlushingStreamBuf err;
};

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

/// Tells the tracker of the end of a request, once, wherever the request is dropped or ends.
class AsyncEvalService::TrackedEnd {
public:
    TrackedEnd(std::shared_ptr<common::RequestTracker> tracker, std::string clientType,
               std::shared_ptr<common::ContextState> context)
        : tracker_(clientType.empty() ? nullptr : std::move(tracker)),
          clientType_(std::move(clientType)),
          context_(std::move(context)) {}
    ~TrackedEnd() { tell(); }
    TrackedEnd(const TrackedEnd&) = delete;
    TrackedEnd& operator=(const TrackedEnd&) = delete;

    void tell() {
        const auto tracker = std::exchange(tracker_, nullptr);
        if (tracker) guarded("requestEnded", [&] { tracker->requestEnded(clientType_, context_); });
    }
    /// Leaves it to another.
    void release() { tracker_ = nullptr; }

private:
    std::shared_ptr<common::RequestTracker> tracker_;
    const std::string clientType_;
    const std::shared_ptr<common::ContextState> context_;
};

/// What is kept of a request until it has ended.
struct AsyncEvalService::Request {
    Request(const AsyncEvalServices& services, const std::string& clientType, HeldContext heldContext,
            const std::shared_ptr<common::ContextState>& context, std::shared_ptr<PrintedText> text)
        : end(services.requestTracker, clientType, context),
          ofClient(context->getOr<std::shared_ptr<ClientRequests>>(ClientRequests::contextKey, nullptr)),
          held(std::move(heldContext)),
          printed(std::move(text)) {}

    TrackedEnd end;
    ClientRequests::Entry ofClient;
    HeldContext held;
    std::shared_ptr<PrintedText> printed;  ///< null for typed characters
};

std::shared_ptr<AsyncEvalService> AsyncEvalService::create(AsyncEvalServices services,
                                                           std::shared_ptr<CoalescingTextBuffer> coalescer) {
    auto future = services.messageServiceFactory->create("eval", {});
    std::shared_ptr<AsyncEvalService> service(
        new AsyncEvalService(std::move(services), std::move(coalescer)));
    future.then([weak = service->weak_from_this()](Future<std::shared_ptr<MessageService>> ready) {
        guarded("AsyncEvalService::subscribe", [&] {
            const auto messages = ready.get();
            const auto self = weak.lock();
            if (self && messages) self->subscribe(messages);
        });
    });
    return service;
}

AsyncEvalService::AsyncEvalService(AsyncEvalServices services,
                                   std::shared_ptr<CoalescingTextBuffer> coalescer)
    : services_(std::move(services)),
      publisher_(std::make_shared<Publisher>()),
      coalescer_(std::move(coalescer)),
      batches_(std::make_unique<BatchOrder>(batchPublisher(publisher_))),
      plugin_(iqm::PacketInfo::registerPlugin2(
          StreamingEvalPlugin::registeredName,
          [](iqm::PluginOptions options, nmutil::contextmgr::NcrID) {
              return std::make_unique<StreamingEvalPlugin>(std::move(options));
          },
          true)),
      listening_(std::make_unique<CountedSwitch>([this] { listen(); }, [this] { stopToListen(); })) {
    asyncLog().info("Constructing async eval");
    coalescer_->setCallback(batches_->callback());
}

void AsyncEvalService::subscribe(const std::shared_ptr<MessageService>& messages) {
    const auto weak = weak_from_this();
    publisher_->open(messages);
    requests_ =
        messages->subscribe(wire::channel::evalRequest, [weak](const message_service::JsonMessage& message) {
            if (const auto self = weak.lock()) self->handleEvalRequest(message);
        });
    watch_ = messages->watch(
        wire::channel::allEvalResponses,
        [weak](const message_service::SubscribeEvent& event) {
            if (const auto self = weak.lock()) self->handleClientSubscribe(event);
        },
        [weak](const message_service::UnsubscribeEvent& event) {
            if (const auto self = weak.lock()) self->handleClientUnsubscribe(event);
        });
}

AsyncEvalService::~AsyncEvalService() {
    requests_.reset();
    watch_.reset();
    while (stopListening() > 0) {
    }
    publisher_->close();
}

void AsyncEvalService::handleEvalRequest(const message_service::JsonMessage& message) {
    try {
        if (asyncLog().isEnabled(Severity::Debug)) asyncLog().debug("Eval request: " + message.data);
        const auto& context = message.context;
        HeldContext held(context);
        const auto clientType = context->getOr<std::string>("clientType", {});
        if (services_.requestTracker && !clientType.empty()) {
            guarded("requestStarted", [&] { services_.requestTracker->requestStarted(clientType, context); });
        }
        TrackedEnd end(services_.requestTracker, clientType, context);
        if (!services_.requestGate || !services_.requestGate->isOpen()) {
            asyncLog().info("The gate is closed; the request is dropped.");
            return;
        }
        auto text = textOf(message.data);
        end.release();  // what sends the request ends it
        if (services::prompt::detail::isInCharBufferMode()) {
            sendRawCharsToBuffer(std::move(text), clientType, held.release(), context);
        } else {
            sendEvalRequest(std::move(text), clientType, held.release(), context);
        }
    } catch (const std::exception& error) {
        // Clients can make as many as they like of their own errors.
        const auto severity = isOfClient(error) ? Severity::Info : Severity::Error;
        if (!asyncLog().isEnabled(severity)) return;
        asyncLog().write(severity, "Unknown issue in AsyncEvalService::handleEvalRequest");
        asyncLog().write(severity, std::string("What it was: ") + error.what());
    } catch (...) {
        asyncLog().error("Unknown issue in AsyncEvalService::handleEvalRequest");
    }
}

void AsyncEvalService::sendEvalRequest(std::u16string code, const std::string& clientType,
                                       std::uint64_t contextHandle,
                                       const std::shared_ptr<common::ContextState>& context) {
    HeldContext held(contextHandle);
    const auto printed = std::make_shared<PrintedText>(coalescer_);
    const auto request = std::make_shared<Request>(services_, clientType, std::move(held), context, printed);
    auto completion = completionOf(request);
    guarded("sendDduxRequest", [&] { sendDduxRequest(dduxPayload(clientType)); });
    if (!services_.zvm) throw std::runtime_error("No interpreter runs here.");
    if (services_.shadowService && !services_.shadowService->isReady()) {
        throw std::runtime_error("The files of the clients are not in place.");
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
    const auto request = std::make_shared<Request>(services_, clientType, std::move(held), context, nullptr);
    auto completion = completionOf(request);
    if (asyncLog().isEnabled(Severity::Debug)) {
        asyncLog().debug("Typing chars into type ahead:" + fl::i18n::to_string(characters));
    }
    if (!services_.zvm) throw std::runtime_error("No interpreter runs here.");
    const auto type = [characters = std::move(characters)] {
        asyncLog().debug("Posting key typing:");
        typeAtPrompt(characters);
    };
    release(*request, queueTask(services_.zvm, clientOptions(*context, WhenToDequeue::Prompt, contextHandle),
                                type, std::move(completion)));
}

void AsyncEvalService::release(Request& request, zvm::detail::CmdDistributorTaskReference task) {
    request.ofClient.set([task]() mutable { task.cancel(false); });
    task.setReadyToExecute();
}

// The delegate alone holds the promise: a request that is not queued, or that the queue drops, ends with it.
std::shared_ptr<cmddistributor::PromiseDelegate> AsyncEvalService::completionOf(
    std::shared_ptr<Request> request) {
    auto promise = std::make_shared<Promise<void>>();
    promise->getFuture().then([weak = weak_from_this(), request = std::move(request)](Future<void> ended) {
        // What other threads of the code print from now on belongs to no request.
        if (request->printed) request->printed->stop();
        request->ofClient.end();  // the client may send another as soon as it knows
        if (const auto self = weak.lock()) self->complete(*request, isSuccess(ended));
        request->end.tell();
    });
    return std::make_shared<cmddistributor::PromiseDelegateT<void>>(std::move(promise),
                                                                    [](const cmddistributor::IIPResult&) {});
}

// Each step is taken whatever becomes of the others.
void AsyncEvalService::complete(const Request& request, bool isSuccess) {
    guarded("flush", [&] { flush(); });
    guarded("completion", [&] {
        publish(wire::channel::completion,
                DataBuffer(json::quoted(isSuccess ? wire::completion::success : wire::completion::failure)));
    });
    if (request.printed) guarded("sendDduxResponse", [&] { sendDduxResponse(); });
}

void AsyncEvalService::publish(const std::string& channel, const DataBuffer& data) {
    publisher_->publish(channel, data);
}

void AsyncEvalService::flush() {
    coalescer_->flush();
    batches_->await();
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
