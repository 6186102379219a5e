#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "connector/ThreadSafety.h"
#include "connector/common/DataBuffer.h"
#include "connector/common/requests.h"
#include "connector/interpreter/v1/CoalescingTextBuffer.h"
#include "connector/message_service/MessageService.h"
#include "connector/shadow_files/v1/ShadowService.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"
#include "iqm/plugins.h"
#include "nmutil/events.h"
#include "zvm/ZVM.h"

namespace cmddistributor {
class PromiseDelegate;
}
namespace zvm::detail {
class CmdDistributorTaskReference;
}

namespace connector::interpreter::v1 {

class CountedSwitch;
class Publisher;
struct StreamedRequest;

/// What the streaming service works with. Only the factory must be there.
struct AsyncEvalServices {
    std::shared_ptr<zvm::ZVM> zvm;  ///< null where no interpreter runs: every request fails
    std::shared_ptr<message_service::MessageServiceFactory> messageServiceFactory;
    std::shared_ptr<shadow_files::v1::ShadowService> shadowService;  ///< unless it is ready, requests fail
    std::shared_ptr<common::RequestGate> requestGate;  ///< when null or closed, nothing is evaluated
    std::shared_ptr<common::RequestTracker> requestTracker;
};

/// Runs code that clients publish, and publishes what it prints while it runs.
///
/// A request is a JSON string on "/eval/request": code, or characters when the interpreter reads typed input.
/// The answers go to every client, on channels under "/eval/response/":
///
///     output, error            a batch of printed text
///     completion               "Done: success" or "Done: failure"
///     commandwindow/clear      "clear"
///     commandwindow/home       "home"
///     suggest                  the name that may have been meant
///     iqminput                 the name of the prompt that is shown now
///
/// Each request that is a JSON string and finds the gate open is completed once: after all that its code
/// printed or, for characters, when they have been typed.
///
///     request -- gate closed, malformed --> dropped, logged
///        '------> queued --> run or typed --------------------> completed
///                   '------> refused, taken back, interrupted --> completed, as a failure
///
/// Its client may take it back, or be bounded, by the ClientRequests in its context.
///
/// The interpreter's events are listened to while somebody wants it: each channel or pattern under
/// "/eval/response/" counts once for each client that is subscribed to it, however often it asked.
///
/// Threads: every operation from any thread; none waits for the interpreter.
/// Locks: mutex_ and those of its parts, none while a message is published or a handler is called.
/// Owns: held by shared pointers, and reached by its callbacks through weak ones. A request outlives it; what
/// that still prints is dropped. A subscriber of its channels must not wait for the interpreter to run
/// something, nor end the service: it may be called on the interpreter's thread, though without its lock.
class AsyncEvalService : public std::enable_shared_from_this<AsyncEvalService> {
public:
    /// Makes the service, which takes requests from when the factory's message service, "eval", is there.
    /// `coalescer` gathers what is printed.
    /// Throws: std::runtime_error, "Future state isn't valid!", when the factory gives no future.
    static std::shared_ptr<AsyncEvalService> create(
        AsyncEvalServices services,
        std::shared_ptr<CoalescingTextBuffer> coalescer = std::make_shared<CoalescingTextBuffer>());
    /// Blocks: while a handler of it runs on another thread.
    ~AsyncEvalService();
    AsyncEvalService(const AsyncEvalService&) = delete;
    AsyncEvalService& operator=(const AsyncEvalService&) = delete;

    /// Counts one more who wants the events; with the first it starts to listen to them. A start that fails
    /// is logged, and tried again when the count changes. While another thread starts or stops listening, it
    /// is left to that thread to follow the count.
    void startListening();
    /// Counts one less, but never below none; with the last it stops. Returns how many are left.
    /// Blocks: when it stops, while a handler runs on another thread.
    std::int32_t stopListening();

    void handleClientSubscribe(const message_service::SubscribeEvent& event) CONNECTOR_EXCLUDES(mutex_);
    void handleClientUnsubscribe(const message_service::UnsubscribeEvent& event) CONNECTOR_EXCLUDES(mutex_);

    /// Begins a request. What goes wrong is logged, and goes no further.
    /// The request tracker is told of every request of a client that names its type, also of one that is then
    /// dropped; and of the end of each, once: after its completion, or when it is dropped.
    void handleEvalRequest(const message_service::JsonMessage& message);
    /// Queues code, or characters to type at the next prompt. The request is completed in any case.
    /// Owns: takes over `contextHandle`, under which `context` is kept until the request has ended.
    /// Throws: what the queue throws, with the request completed as a failure.
    void sendEvalRequest(std::u16string code, const std::string& clientType, std::uint64_t contextHandle,
                         const std::shared_ptr<common::ContextState>& context);
    void sendRawCharsToBuffer(std::u16string characters, const std::string& clientType,
                              std::uint64_t contextHandle,
                              const std::shared_ptr<common::ContextState>& context);

    /// Sends `data`, one JSON value.  Blocks: as the message service, and not for its future.
    void publish(const std::string& channel, const common::DataBuffer& data);
    /// Publishes what has been printed.
    /// Blocks: until batches that another thread publishes have gone out, too.
    void flush();

    // Handlers of the interpreter's events. What goes wrong in them is logged. Text that was printed before
    // the event goes out first.
    void handleClc(const nmutil::io::CLCEvent& event);
    void handleHome(const nmutil::io::HomeEvent& event);
    void handleSinkText(const nmutil::io::SinkTextEvent& event);
    void handlePrintableError(const nmutil::io::PrintableErrorEvent& event);
    void handleInputRequest(const nmutil::utils::InputRequestEvent& event);
    void handleIqmInputRequest(const nmutil::utils::IqmInputRequestEvent& event);
    void handleSuggestion(const numora::lang::correction::SuggestionEvent& event);

private:
    AsyncEvalService(AsyncEvalServices services, std::shared_ptr<CoalescingTextBuffer> coalescer);
    void subscribe(const std::shared_ptr<message_service::MessageService>& messages);

    void listen();
    void stopToListen();
    template <class Event>
    foundation::msg_svc::eventmgr::ScopedConnection connect(foundation::msg_svc::eventmgr::EventMgr& manager,
                                                            void (AsyncEvalService::*handler)(const Event&));

    std::shared_ptr<cmddistributor::PromiseDelegate> completionOf(std::shared_ptr<StreamedRequest> request);
    /// Lets what is queued run, unless its client takes it back.
    static void release(StreamedRequest& request, zvm::detail::CmdDistributorTaskReference task);
    void complete(StreamedRequest& request, bool isSuccess);
    void doPromptChange(nmutil::prompt::InputRequester prompt);
    void sendDduxRequest(const std::string& payload);
    void sendDduxResponse();

    // Fixed after construction.
    const AsyncEvalServices services_;
    const std::shared_ptr<Publisher> publisher_;
    const std::shared_ptr<CoalescingTextBuffer> coalescer_;
    const nmutil::ScopedFactoryRegistration plugin_;

    /// Notes that a line is typed for the prompt with this number.  Throws: when one is already.
    void answerPrompt(std::uint64_t prompt, const std::u16string& characters);

    std::atomic<bool> dduxEnabled_{false};          ///< at the last request
    std::atomic<std::uint64_t> answeredPrompt_{0};  ///< the last one for which a whole line is typed

    // Changed by the switch alone, on one thread at a time.
    std::vector<foundation::msg_svc::eventmgr::ScopedConnection> connections_;
    const std::unique_ptr<CountedSwitch> listening_;

    Mutex mutex_;
    /// What clients are subscribed to: client and channel.
    std::set<std::pair<std::string, std::string>> clients_ CONNECTOR_GUARDED_BY(mutex_);

    std::unique_ptr<message_service::Subscription> requests_;
    std::unique_ptr<message_service::Subscription> watch_;
};

}  // namespace connector::interpreter::v1
