#include "jupyter/SessionInterpreter.h"

#include <utility>

#include "SessionFeed.h"
#include "capabilities/capabilities.h"
#include "connector/common/ClientRequests.h"
#include "connector/common/RequestOrigin.h"
#include "connector/json/escape.h"
#include "connector/wireWords.h"

namespace jupyter {

using connector::common::ClientRequests;
using connector::common::ContextScope;
using connector::common::ContextState;
using connector::common::RequestOrigin;
using connector::common::RequestRefusal;
using dispatch::Answer;

namespace {

constexpr const char* clientType = "notebook";
constexpr int inUse = 409, gone = 410, failed = 500, cannotRestart = 501, unavailable = 503;

messages::SessionOptions sessionOptions() {
    messages::SessionOptions options;
    options.clientType = clientType;
    // The largest event, a comm's of 16 MiB, finds room beside what waits while code is not yet held up.
    options.queueBytes = std::size_t{20} << 20;
    // Clients that take nothing for long have the code wait for `ownerWait` alone; the kernel stays.
    options.fullLimit = std::chrono::hours(24);
    return options;
}

void setCapabilities(ContextState& context, capabilities::CapabilityList list) {
    context.set("numoraCapabilities", std::move(list), ContextScope::Client);
}

int statusOf(const Answer& answer) {
    return answer.status == unavailable && !answer.death.empty() ? gone : answer.status;
}

std::string textOf(Answer& answer) {
    return answer.status == 200 ? std::move(answer.json) : std::move(answer.problem);
}

}  // namespace

SessionInterpreter::SessionInterpreter(Ways ways, Executor& executor)
    : ways_(std::move(ways)),
      underWay_(std::make_shared<ClientRequests>()),
      feed_(std::make_shared<Feed>(
          [messages = ways_.messages] { return messages->openSession(sessionOptions()); }, executor)) {}

SessionInterpreter::~SessionInterpreter() { feed_->stop(); }

SessionInterpreter::Context SessionInterpreter::newContext() const {
    auto context = std::make_shared<ContextState>();
    context->set(ClientRequests::contextKey, underWay_);
    return context;
}

void SessionInterpreter::stream(const Code& code, Refused refused) {
    const auto context = newContext();
    context->set(RequestOrigin::forPrompt, code.prompt);
    setCapabilities(*context, code.capabilities);
    const auto session = feed_->session();
    RequestOrigin origin{.request = code.request, .pace = session->pace()};
    origin.reservation = ways_.names->reserve(code.request);
    if (!origin.reservation) {
        return feed_->post(
            [refused = std::move(refused)] { refused(inUse, "a request of this name has not ended"); });
    }
    feed_->await(code.request, std::move(refused));
    const auto refuse = [feed = feed_, request = code.request](int status, std::string reason) {
        feed->refuse(request, status, std::move(reason));
    };
    RequestOrigin::set(*context, std::move(origin));
    const auto taken = [refuse](const RequestRefusal& refusal) {
        if (refusal.status != 0) refuse(refusal.status, refusal.reason);
    };
    try {
        ways_.stream(*session, connector::wire::channel::evalRequest, connector::json::quoted(code.text),
                     context, taken);
    } catch (const std::exception& error) {
        refuse(failed, error.what());
    }
}

void SessionInterpreter::submit(const std::string& type, std::string json,
                                std::function<void(dispatch::Answer)> answered) {
    const auto context = newContext();
    context->set("clientType", std::string(clientType));
    setCapabilities(*context, {"display", "notebook"});
    ways_.submit(type, std::make_shared<const std::string>(std::move(json)), context, std::move(answered));
}

void SessionInterpreter::call(const std::string& type, std::string json, Answered answered) {
    submit(type, std::move(json), [feed = feed_, answered = std::move(answered)](Answer answer) {
        feed->post([answered, status = statusOf(answer), text = textOf(answer)] { answered(status, text); });
    });
}

void SessionInterpreter::callInTurn(const std::string& type, std::string json, Answered answered) {
    submit(type, std::move(json),
           [feed = feed_, session = feed_->session(),
            number = feed_->await(std::move(answered))](Answer answer) {
               const int status = answer.status;
               feed->queueAnswer(*session, number, status, textOf(answer));
           });
}

// After what the process that has ended has left.
void SessionInterpreter::restart(Answered answered) {
    const auto told = [feed = feed_, session = feed_->session(),
                       number = feed_->await(std::move(answered))](Answer answer) {
        const int status = answer.status;
        feed->queueAnswer(*session, number, status, textOf(answer));
    };
    if (!ways_.restart) {
        return told(dispatch::errorAnswer(cannotRestart, "The interpreter's process cannot be restarted."));
    }
    ways_.restart(told);
}

void SessionInterpreter::listen(std::function<void(const InterpreterEvent&)> received,
                                std::function<bool()> hasRoom) {
    feed_->listen(std::move(received), std::move(hasRoom));
}

void SessionInterpreter::resume() { feed_->resume(); }

}  // namespace jupyter
