#include "dispatch/RequestDispatcher.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <string_view>

#include <Poco/JSON/Array.h>

#include "connector/ServiceStopped.h"
#include "connector/common/RequestOrigin.h"
#include "connector/common/requests.h"
#include "connector/errorText.h"
#include "connector/identifiers.h"
#include "connector/json/write.h"
#include "connector/wireWords.h"
#include "dispatch/checkMessage.h"
#include "dispatch/members.h"
#include "dispatch/readMessage.h"
#include "foundation/log/diagnostic_logger.h"

namespace dispatch {

namespace {

const foundation::log::DiagnosticLogger& log() {
    static const foundation::log::DiagnosticLogger instance("gateway");
    return instance;
}

using connector::Message;
using connector::WorkerPool;
using connector::common::RequestNames;
using connector::common::RequestOrigin;
namespace wire = connector::wire;

// Of the lanes beside that of the base prompt, which is as long as it is configured to be.
constexpr std::size_t queueOfOthers = 100;
constexpr std::size_t queueOfInterrupts = 1000;
constexpr auto interruptInterval = std::chrono::milliseconds(100);

Answer stopped() { return errorAnswer(503, "The server is stopping."); }

std::string outcomeOf(const Poco::JSON::Object& response) {
    const auto faults = response.getArray("messageFaults");
    if (faults && faults->size() > 0) {
        const auto fault = faults->getObject(0);
        return fault && fault->optValue<std::string>("faultCode", {}) == wire::faultCode::timeout ? "timeout"
                                                                                                  : "fault";
    }
    return response.optValue("isError", false) ? "error" : "success";
}

// A request is known by its uuid, if that can be a name and no other request has it now.
void nameRequest(connector::common::ContextState& context, const Poco::Dynamic::Var& uuid,
                 RequestNames& names) {
    const auto given = RequestOrigin::of(context);
    RequestOrigin origin = given ? *given : RequestOrigin();
    const std::string name = uuid.isString() ? uuid.extract<std::string>() : "";
    if (RequestOrigin::isName(name)) origin.reservation = names.reserve(name);
    origin.request = origin.reservation ? name : RequestOrigin::newName();
    RequestOrigin::set(context, std::move(origin));
}

Poco::JSON::Object::Ptr requireMessage(const std::string& json) {
    auto message = readMessage(json);
    if (!message) throw BadMessage("The message must be a JSON object.");
    return message;
}

// Whoever knows the clients has taken back before what waits of them.
Answer nothingInterrupted(const Poco::JSON::Object& message) {
    Poco::JSON::Object::Ptr response = new Poco::JSON::Object;
    response->set("messageFaults", Poco::JSON::Array::Ptr(new Poco::JSON::Array));
    response->set("uuid", message.get("uuid"));
    return {.json = connector::json::written(response),
            .type = wire::type::interruptResponse,
            .outcome = "success"};
}

}  // namespace

bool isInterrupt(std::string_view typeName) { return typeName == wire::type::interrupt; }

struct RequestDispatcher::Request {
    std::string typeName;
    Context context;
    Done done;
    std::unique_ptr<Message> message{};  ///< null until it is read
};

RequestDispatcher::RequestDispatcher(std::shared_ptr<connector::ServiceFramework> framework,
                                     std::shared_ptr<connector::json::JsonSerializer> serializer,
                                     DispatcherOptions options)
    : framework_(std::move(framework)),
      serializer_(std::move(serializer)),
      isReadingInput_(std::move(options.isReadingInput)),
      dequeMode_(std::move(options.dequeMode)) {
    for (std::size_t i = 0; i < laneCount; ++i) {
        const auto lane = static_cast<Lane>(i);
        if (lane == Lane::BasePrompt) {
            lanes_[i] =
                std::make_unique<WorkerPool>(options.threads, options.queueLength, options.queueBytes);
        } else if (lane == Lane::Interrupt) {
            lanes_[i] = std::make_unique<WorkerPool>(1, queueOfInterrupts);
        } else {
            lanes_[i] =
                std::make_unique<WorkerPool>(options.threads, std::min(options.queueLength, queueOfOthers));
        }
    }
}

RequestDispatcher::~RequestDispatcher() { stop(); }

void RequestDispatcher::submit(const std::string& typeName, std::shared_ptr<const std::string> json,
                               Context context, Done done) {
    if (!serializer_->isRegistered(typeName)) return done(errorAnswer(404, "There is no such message type."));
    if (!context) context = std::make_shared<connector::common::ContextState>();
    if (!context->has(connector::common::requestArrival)) connector::common::stampArrival(*context);
    const auto request = std::make_shared<Request>(Request{typeName, std::move(context), std::move(done)});
    if (json->size() > largeBody) {
        const auto bytes = json->size();
        auto work = [this, request, json = std::move(json)] { return readAndRun(*request, *json); };
        return queue(Lane::BasePrompt, request, std::move(work), bytes);
    }
    Lane where{};
    try {
        auto message = requireMessage(*json);
        where = laneOf(typeName, *message, isReadingInput_ && isReadingInput_(),
                       dequeMode_ ? dequeMode_() : std::string());
        readMessage(*request, message);
        if (isInterrupt(typeName) && message->optValue("waitingOnly", false))
            return finish(*request, nothingInterrupted(*message));
    } catch (const std::exception& error) {
        return finish(*request, errorAnswer(400, connector::errorText(error)));
    }
    queue(
        where, request, [this, request] { return run(*request); }, 0);
}

void RequestDispatcher::queue(Lane where, const std::shared_ptr<Request>& request,
                              std::function<Answer()> work, std::size_t bytes) {
    auto run = [this, where, request, work = std::move(work)] {
        // What waits for the running code must not hold up the answer to its next question.
        if (where == Lane::Input && !isReadingInput_()) return queue(Lane::BasePrompt, request, work, 0);
        finish(*request, work());
    };
    switch (lane(where).submit({.run = std::move(run),
                                .refuse = [this, request] { finish(*request, stopped()); },
                                .bytes = bytes})) {
        case WorkerPool::Outcome::Accepted:
            return;
        case WorkerPool::Outcome::Full:
            return finish(*request, errorAnswer(429, "Too many requests are waiting.", 1));
        case WorkerPool::Outcome::Closed:
            return finish(*request, stopped());
    }
}

// Before it is queued, because the tree may take hundreds of times the room of the message or of its text.
void RequestDispatcher::readMessage(Request& request, Poco::JSON::Object::Ptr object) const {
    checkMessage(request.typeName, *object);
    request.message = serializer_->read(request.typeName, object);
    nameRequest(*request.context, object->get("uuid"), *names_);
}

Answer RequestDispatcher::run(Request& request) {
    try {
        return deliver(request);
    } catch (const connector::NoService&) {  // its text names classes
        const bool isSequence = request.typeName == wire::type::sequence;
        return errorAnswer(404, isSequence ? "No service takes a message of the sequence."
                                           : "No service takes messages of type " + request.typeName + '.');
    } catch (const connector::ServiceStopped& error) {
        return errorAnswer(503, error.what());
    } catch (const std::exception& error) {
        log().error("A request failed: " + connector::errorText(error));
        return errorAnswer(500, connector::errorText(error));
    } catch (...) {
        log().error("A request failed with an error of unknown kind.");
        return errorAnswer(500, "The service failed.");
    }
}

Answer RequestDispatcher::readAndRun(Request& request, const std::string& json) {
    try {
        readMessage(request, requireMessage(json));
    } catch (const std::exception& error) {
        return errorAnswer(400, connector::errorText(error));
    }
    return run(request);
}

Answer RequestDispatcher::deliver(Request& request) {
    const auto response = framework_->deliver({}, std::move(request.message), request.context).get();
    if (!response) return errorAnswer(500, "The service gave no response.");
    const auto object = serializer_->write(*response);
    Answer answer{.status = 200,
                  .json = connector::json::written(object),
                  .type = serializer_->typeNameOf(*response),
                  .retrySeconds = 0};
    answer.isDropped = request.context->getOr("requestDropped", false);
    answer.outcome = answer.isDropped ? "dropped" : outcomeOf(*object);
    return answer;
}

void RequestDispatcher::finish(const Request& request, Answer answer) {
    if (answer.status != 200) answer.outcome = "refused";
    count(request.typeName, answer.outcome);
    // The client may send another of this name as soon as it has the answer.
    const auto origin = request.context ? RequestOrigin::of(*request.context) : nullptr;
    if (origin && origin->reservation) origin->reservation->release();
    request.done(std::move(answer));
}

void RequestDispatcher::count(const std::string& typeName, const std::string& outcome) {
    const connector::MutexLock lock(mutex_);
    ++outcomes_[{typeName, outcome}];
}

std::size_t RequestDispatcher::pending() const {
    const auto now = metrics();
    return now.queued + now.running;
}

DispatcherMetrics RequestDispatcher::metrics() const {
    DispatcherMetrics metrics;
    for (const auto& lane : lanes_) {
        metrics.queued += lane->queued();
        metrics.running += lane->running();
    }
    const connector::MutexLock lock(mutex_);
    metrics.outcomes = outcomes_;
    return metrics;
}

// Also when no request runs: there may be code whose output is streamed.
void RequestDispatcher::stop() {
    for (const auto& lane : lanes_) lane->close();
    if (!isStopped_.exchange(true)) interrupt();
    // One interrupt may come before a request that was taken just now has reached its service.
    for (const auto& lane : lanes_) {
        while (!lane->waitUntilIdle(interruptInterval)) interrupt();
    }
}

void RequestDispatcher::interrupt() {
    try {
        const std::string type(wire::type::interrupt);
        if (!serializer_->isRegistered(type)) return;
        Poco::JSON::Object::Ptr message = new Poco::JSON::Object;
        message->set("uuid", connector::randomUuid());
        const auto context = std::make_shared<connector::common::ContextState>();
        connector::common::stampArrival(*context);
        framework_->deliver({}, serializer_->read(type, message), context).get();
    } catch (const std::exception& error) {
        log().warning("What runs cannot be interrupted: " + connector::errorText(error));
    }
}

}  // namespace dispatch
