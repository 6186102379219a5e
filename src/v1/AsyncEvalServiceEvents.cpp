// What the streaming service does with the interpreter's events, and when it listens to them.

#include <string_view>
#include <utility>

#include "connector/common/RequestOrigin.h"
#include "connector/interpreter/v1/AsyncEvalService.h"
#include "connector/json/escape.h"
#include "connector/wireWords.h"
#include "fl/i18n/text.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"
#include "nmutil/prompt/InputRequester.h"
#include "v1/CountedSwitch.h"
#include "v1/catchAndLog.h"
#include "v1/log.h"
#include "v1/requestOptions.h"

namespace connector::interpreter::v1 {

using connector::common::DataBuffer;
using foundation::msg_svc::eventmgr::EventMgr;
using foundation::msg_svc::eventmgr::ScopedConnection;

void AsyncEvalService::startListening() { listening_->add(); }

std::int32_t AsyncEvalService::stopListening() { return listening_->remove(); }

void AsyncEvalService::handleClientSubscribe(const message_service::SubscribeEvent& event) {
    {
        MutexLock lock(mutex_);
        if (!clients_.emplace(event.clientId, event.channel).second) return;
    }
    startListening();
}

void AsyncEvalService::handleClientUnsubscribe(const message_service::UnsubscribeEvent& event) {
    {
        MutexLock lock(mutex_);
        if (clients_.erase({event.clientId, event.channel}) == 0) return;
    }
    stopListening();
}

void AsyncEvalService::listen() {
    asyncLog().debug("Starting async eval:");
    const auto manager = nmutil::eventmgr::createLocalEventMgr();
    std::vector<ScopedConnection> connections;
    connections.push_back(connect(*manager, &AsyncEvalService::handleClc));
    connections.push_back(connect(*manager, &AsyncEvalService::handleHome));
    connections.push_back(connect(*manager, &AsyncEvalService::handleSinkText));
    connections.push_back(connect(*manager, &AsyncEvalService::handlePrintableError));
    connections.push_back(connect(*manager, &AsyncEvalService::handleInputRequest));
    connections.push_back(connect(*manager, &AsyncEvalService::handleIqmInputRequest));
    connections.push_back(connect(*manager, &AsyncEvalService::handleSuggestion));
    connections_ = std::move(connections);
}

void AsyncEvalService::stopToListen() {
    asyncLog().debug("Stopping async eval");
    connections_.clear();
}

template <class Event>
ScopedConnection AsyncEvalService::connect(EventMgr& manager,
                                           void (AsyncEvalService::*handler)(const Event&)) {
    return ScopedConnection(manager.subscribe<Event>([weak = weak_from_this(), handler](const Event& event) {
        if (const auto self = weak.lock()) ((*self).*handler)(event);
    }));
}

void AsyncEvalService::handleClc(const nmutil::io::CLCEvent& /*event*/) {
    catchAndLog("handleClc", [this] {
        flush();
        publish(wire::channel::clear, DataBuffer(R"("clear")"));
    });
}

void AsyncEvalService::handleHome(const nmutil::io::HomeEvent& /*event*/) {
    catchAndLog("handleHome", [this] {
        flush();
        publish(wire::channel::home, DataBuffer(R"("home")"));
    });
}

void AsyncEvalService::handleSinkText(const nmutil::io::SinkTextEvent& event) {
    catchAndLog("handleSinkText", [&] {
        coalescer_->append(event.getText().data(), event.getText().size(), event.getStreamType());
    });
}

void AsyncEvalService::handlePrintableError(const nmutil::io::PrintableErrorEvent& event) {
    catchAndLog("handlePrintableError", [&] {
        flush();
        coalescer_->append(printableText(event), nmutil::io::STANDARD_ERROR);
        flush();
    });
}

// The number of the prompt goes with the message, as the name of the request does.
void AsyncEvalService::handleInputRequest(const nmutil::utils::InputRequestEvent& event) {
    const auto origin = common::RequestOrigin::current();
    auto ofPrompt = origin ? *origin : common::RequestOrigin{};
    ofPrompt.prompt = event.getNumber();
    ofPrompt.echo = event.isEchoed();
    const auto context = std::make_shared<common::ContextState>();
    common::RequestOrigin::set(*context, std::move(ofPrompt));
    const common::CurrentContext current(context);
    doPromptChange(event.getRequester());
}

void AsyncEvalService::handleIqmInputRequest(const nmutil::utils::IqmInputRequestEvent& event) {
    doPromptChange(event.getRequester());
}

void AsyncEvalService::handleSuggestion(const numora::lang::correction::SuggestionEvent& event) {
    if (event.isQuiet()) return;
    catchAndLog("handleSuggestion", [&] {
        const std::string text = json::quoted(fl::i18n::to_string(event.getText()));
        coalescer_->appendDduxDataForSuggestion(event.getText());
        flush();
        publish(wire::channel::suggestion, DataBuffer(text));
    });
}

// What was printed goes out first: the text of a prompt is to be there when a client is asked for input.
void AsyncEvalService::doPromptChange(nmutil::prompt::InputRequester prompt) {
    catchAndLog("doPromptChange", [&] {
        flush();
        publish(wire::channel::prompt,
                DataBuffer('"' + std::string(nmutil::prompt::promptName(prompt)) + '"'));
    });
}

}  // namespace connector::interpreter::v1
