#include "InProcessSession.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <utility>

#include <Poco/Exception.h>

#include "connector/common/RequestOrigin.h"
#include "connector/common/requests.h"
#include "connector/configuration/settings.h"
#include "connector/identifiers.h"
#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "connector/wireWords.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"
#include "messages/ClientSession.h"
#include "nmutil/events.h"
#include "services/window.h"
#include "streamMessage.h"

namespace app {

using connector::common::RequestOrigin;
using connector::common::RequestRefusal;

namespace {

std::atomic<std::uint64_t> interruptCount{0};
bool areInterruptsIgnored = false;

// Shells have what they start in the background ignore SIGINT. The interpreter needs the signal for
// interrupts of its own; those from outside go on being ignored.
void acceptInterrupts() {
    struct sigaction current {};
    if (::sigaction(SIGINT, nullptr, &current) != 0 || current.sa_handler != SIG_IGN) return;
    ::signal(SIGINT, SIG_DFL);
    areInterruptsIgnored = true;
    standalone::setOutsideInterruptHandler([] { return true; });
}

void countInterrupts() {
    if (areInterruptsIgnored) return;
    standalone::setOutsideInterruptHandler([] {
        ++interruptCount;
        return false;
    });
}

standalone::HostOptions prepareHost(const WindowSize& window, const Workplace& workplace,
                                    const std::map<std::string, std::string>& configuration,
                                    int traceDescriptor) {
    workplace.enter();
    standalone::blockInterpreterSignals();
    acceptInterrupts();
    standalone::HostOptions options;
    options.columns = static_cast<std::uint64_t>(window.columns);
    options.rows = static_cast<std::uint64_t>(window.rows);
    options.virtualEnvironment = workplace.venv();
    options.configuration = configuration;
    options.traceDescriptor = traceDescriptor;
    return options;
}

std::shared_ptr<connector::common::ContextState> requestContext() {
    auto context = std::make_shared<connector::common::ContextState>();
    connector::common::stampArrival(*context);
    context->set("clientType", std::string("numora-cli"));
    return context;
}

messages::SessionOptions clientOptions() {
    messages::SessionOptions options;
    options.clientType = "numora-cli";
    // Standard output may be a pager that stands still for hours: the code waits for it, as for any reader.
    options.queueBytes = std::size_t{64} << 20;
    options.fullLimit = options.ownerWait = std::chrono::hours(24);
    return options;
}

class InProcessStream : public ResponseStream {
public:
    explicit InProcessStream(messages::LocalMessageService& messages)
        : client_(messages.openSession(clientOptions())) {
        client_->subscribe(connector::wire::channel::allEvalResponses);
    }
    void send(const StreamRequest& request) override {
        const auto context = std::make_shared<connector::common::ContextState>();
        RequestOrigin::set(*context, {.request = request.name, .pace = client_->pace()});
        if (request.prompt) context->set(RequestOrigin::forPrompt, *request.prompt);
        client_->publish(connector::wire::channel::evalRequest, connector::json::quoted(request.text),
                         context);
        const auto refusal = context->getOr(RequestRefusal::contextKey, RequestRefusal());
        if (refusal.status == 409 && request.prompt) throw PromptGone(refusal.reason);
        if (refusal.status != 0) throw std::runtime_error("the request was refused: " + refusal.reason);
    }
    Taken take(std::chrono::milliseconds limit) override {
        constexpr std::size_t bytesPerTake = std::size_t{1} << 20;
        const messages::TakenFrames taken = client_->take(bytesPerTake, limit);
        Taken result;
        for (const auto& frame : taken.frames) {
            const auto message = connector::json::parse(frame->text()).extract<Poco::JSON::Object::Ptr>();
            result.messages.push_back(streamMessageFrom(*message, frame->text()));
        }
        if (taken.isClosed) {
            result.failure = "the connection to the interpreter is closed: " + client_->closeReason();
        }
        return result;
    }

private:
    const std::shared_ptr<messages::ClientSession> client_;
};

}  // namespace

InProcessSession::InProcessSession(const WindowSize& window, const Workplace& workplace,
                                   const std::map<std::string, std::string>& configuration,
                                   int traceDescriptor)
    : serializer_(std::make_shared<connector::json::JsonSerializer>()),
      host_(prepareHost(window, workplace, configuration, traceDescriptor)),
      module_({.framework = host_.framework(),
               .configuration = host_.configuration(),
               .serializer = serializer_,
               .zvm = host_.zvm(),
               .messageServiceFactory = host_.messageServiceFactory(),
               .shadowService = host_.shadowService(),
               .requestGate = host_.requestGate(),
               .requestTracker = host_.requestCounter()}) {}

std::uint64_t InProcessSession::interrupts() const { return interruptCount; }

std::string InProcessSession::dequeMode() const {
    return host_.configuration()->getText(connector::configuration::dequeModeKey, "");
}

StandardStreams InProcessSession::streams() const {
    return {host_.standardInput(), host_.standardOutput(), host_.standardError()};
}

nmutil::prompt::InputRequester InProcessSession::promptAfter(const std::string&) {
    return services::prompt::getInputRequester();
}

void InProcessSession::refuseInput() {
    prompts_ = foundation::msg_svc::eventmgr::ScopedConnection(
        nmutil::eventmgr::createLocalEventMgr()->subscribe<nmutil::utils::InputRequestEvent>(
            [this](const nmutil::utils::InputRequestEvent& event) {
                if (event.getRequester() == nmutil::prompt::NO_PROMPT) return;
                printError(host_.standardError(),
                           "the function waits for input, which is not available here");
                host_.zvm()->interrupt();
            }));
}

std::unique_ptr<ResponseStream> InProcessSession::openStream() {
    countInterrupts();
    return std::make_unique<InProcessStream>(*host_.messages());
}

std::unique_ptr<connector::Message> InProcessSession::read(const std::string& type,
                                                           const Poco::JSON::Object::Ptr& message) const {
    if (!message) throw BadMessage("a message of type " + type + " must be a JSON object");
    Poco::JSON::Object::Ptr complete = new Poco::JSON::Object(*message);
    if (!complete->has("uuid")) complete->set("uuid", connector::randomUuid());
    try {
        return serializer_->read(type, complete);
    } catch (const Poco::Exception& error) {
        throw BadMessage("a message of type " + type + " is not valid: " + error.message());
    } catch (const std::exception& error) {
        throw BadMessage("a message of type " + type + " is not valid: " + error.what());
    }
}

Poco::JSON::Object::Ptr InProcessSession::request(const std::string& type,
                                                  const Poco::JSON::Object::Ptr& message) {
    auto future = host_.framework()->deliver(connector::Address{}, read(type, message), requestContext());
    return serializer_->write(*future.get());
}

}  // namespace app
