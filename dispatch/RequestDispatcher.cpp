#include "dispatch/RequestDispatcher.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <string_view>

#include <Poco/JSON/Array.h>

#include "connector/ServiceStopped.h"
#include "connector/ThreadSafety.h"
#include "connector/WorkerPool.h"
#include "connector/common/requests.h"
#include "connector/errorText.h"
#include "connector/identifiers.h"
#include "connector/json/write.h"
#include "connector/wireWords.h"
#include "dispatch/errorAnswer.h"
#include "dispatch/lanes.h"
#include "foundation/log/diagnostic_logger.h"

namespace dispatch {

namespace {

const foundation::log::DiagnosticLogger& log() {
    static const foundation::log::DiagnosticLogger instance("gateway");
    return instance;
}

using connector::Message;
using connector::WorkerPool;
namespace wire = connector::wire;
using Context = std::shared_ptr<connector::common::ContextState>;

// Of the lanes beside that of the base prompt, which is as long as it is configured to be.
constexpr std::size_t queueOfOthers = 100;
constexpr std::size_t queueOfInterrupts = 1000;
constexpr auto interruptInterval = std::chrono::milliseconds(100);

Answer failure(int status, std::string_view text, int retrySeconds = 0) {
    return {.status = status, .json = errorJson(text), .type = {}, .retrySeconds = retrySeconds};
}

Answer stopped() { return failure(503, "The server is stopping."); }

std::string outcomeOf(const Poco::JSON::Object& response) {
    const auto faults = response.getArray("messageFaults");
    if (faults && faults->size() > 0) {
        const auto fault = faults->getObject(0);
        return fault && fault->optValue<std::string>("faultCode", {}) == wire::faultCode::timeout ? "timeout"
                                                                                                  : "fault";
    }
    return response.optValue("isError", false) ? "error" : "success";
}

}  // namespace

bool isInterrupt(std::string_view typeName) { return typeName == wire::type::interrupt; }

class RequestDispatcher::Impl {
public:
    Impl(std::shared_ptr<connector::ServiceFramework> framework,
         std::shared_ptr<connector::json::JsonSerializer> serializer, DispatcherOptions options)
        : framework_(std::move(framework)),
          serializer_(std::move(serializer)),
          isReadingInput_(std::move(options.isReadingInput)) {
        for (auto& lane : lanes_) {
            lane =
                std::make_unique<WorkerPool>(options.threads, std::min(options.queueLength, queueOfOthers));
        }
        lane(Lane::BasePrompt) =
            std::make_unique<WorkerPool>(options.threads, options.queueLength, options.queueBytes);
        lane(Lane::Interrupt) = std::make_unique<WorkerPool>(1, queueOfInterrupts);
    }

    void submit(const std::string& typeName, Poco::JSON::Object::Ptr message, Context context, Done done);
    void submitUnread(std::size_t bytes, std::function<Read()> read, Context context, Done done);
    std::size_t pending() const;
    DispatcherMetrics metrics() const;
    void stop();

private:
    struct Request {
        std::string typeName;
        Context context;
        Done done;
        std::unique_ptr<Message> message{};  ///< null until it is read
        std::string problem{};               ///< why it cannot be
    };

    std::unique_ptr<WorkerPool>& lane(Lane lane) { return lanes_.at(static_cast<std::size_t>(lane)); }
    void queue(Lane where, const std::shared_ptr<Request>& request, std::function<Answer()> work,
               std::size_t bytes);
    void read(Request& request, Poco::JSON::Object::Ptr object) const;
    /// Delivers, waits for the response and writes it.
    Answer run(Request& request);
    Answer readAndRun(Request& request, const std::function<Read()>& readBody);
    Answer deliver(std::unique_ptr<Message> message, const Request& request);
    /// The answer to a request whose delivery has failed with the current exception.
    Answer deliveryFailure();
    void finish(const Request& request, Answer answer);
    void count(const std::string& typeName, const std::string& outcome) EXCLUDES(mutex_);
    void interrupt();

    const std::shared_ptr<connector::ServiceFramework> framework_;
    const std::shared_ptr<connector::json::JsonSerializer> serializer_;

    mutable connector::Mutex mutex_;
    std::map<std::pair<std::string, std::string>, std::uint64_t> outcomes_ GUARDED_BY(mutex_);

    const std::function<bool()> isReadingInput_;
    std::atomic<bool> isStopped_{false};
    std::array<std::unique_ptr<WorkerPool>, laneCount> lanes_;
};

void RequestDispatcher::Impl::submit(const std::string& typeName, Poco::JSON::Object::Ptr message,
                                     Context context, Done done) {
    if (!serializer_->isRegistered(typeName)) return done(failure(404, "There is no such message type."));
    if (!context) context = std::make_shared<connector::common::ContextState>();
    const auto request = std::make_shared<Request>(Request{typeName, std::move(context), std::move(done)});
    if (!message) return finish(*request, failure(400, "A message must be a JSON object."));
    connector::common::stampArrival(*request->context);
    const Lane where = laneOf(typeName, *message, isReadingInput_ && isReadingInput_());
    read(*request, message);
    queue(
        where, request, [this, request] { return run(*request); }, 0);
}

void RequestDispatcher::Impl::submitUnread(std::size_t bytes, std::function<Read()> read, Context context,
                                           Done done) {
    connector::common::stampArrival(*context);
    const auto request = std::make_shared<Request>(Request{"unread", std::move(context), std::move(done)});
    auto work = [this, request, read = std::move(read)] { return readAndRun(*request, read); };
    queue(Lane::BasePrompt, request, std::move(work), bytes);
}

void RequestDispatcher::Impl::queue(Lane where, const std::shared_ptr<Request>& request,
                                    std::function<Answer()> work, std::size_t bytes) {
    auto run = [this, where, request, work = std::move(work)] {
        // What waits for the running code must not hold up the answer to its next question.
        if (where == Lane::Input && !isReadingInput_()) return queue(Lane::BasePrompt, request, work, 0);
        finish(*request, work());
    };
    switch (lane(where)->submit({.run = std::move(run),
                                 .refuse = [this, request] { finish(*request, stopped()); },
                                 .bytes = bytes})) {
        case WorkerPool::Outcome::Accepted:
            return;
        case WorkerPool::Outcome::Full:
            return finish(*request, failure(429, "Too many requests are waiting.", 1));
        case WorkerPool::Outcome::Closed:
            return finish(*request, stopped());
    }
}

// Before it is queued, because the tree may take hundreds of times the room of the message or of its text.
void RequestDispatcher::Impl::read(Request& request, Poco::JSON::Object::Ptr object) const {
    try {
        if (!object->has("uuid")) object->set("uuid", connector::randomUuid());
        request.message = serializer_->read(request.typeName, object);
    } catch (const std::exception& error) {
        request.problem = connector::errorText(error);
    }
}

Answer RequestDispatcher::Impl::run(Request& request) {
    if (!request.message) return failure(400, request.problem);
    try {
        return deliver(std::move(request.message), request);
    } catch (...) {
        return deliveryFailure();
    }
}

Answer RequestDispatcher::Impl::readAndRun(Request& request, const std::function<Read()>& readBody) {
    try {
        Read unread = readBody();
        if (!serializer_->isRegistered(unread.typeName)) {
            return failure(404, "There is no such message type.");  // and no name for the metrics
        }
        request.typeName = std::move(unread.typeName);
        read(request, unread.message);
    } catch (const std::exception& error) {
        return failure(400, connector::errorText(error));
    }
    return run(request);
}

Answer RequestDispatcher::Impl::deliver(std::unique_ptr<Message> message, const Request& request) {
    const auto response = framework_->deliver({}, std::move(message), request.context).get();
    if (!response) return failure(500, "The service gave no response.");
    const auto object = serializer_->write(*response);
    Answer answer{.status = 200,
                  .json = connector::json::written(object),
                  .type = serializer_->typeNameOf(*response),
                  .retrySeconds = 0};
    answer.isDropped = request.context->getOr("requestDropped", false);
    count(request.typeName, answer.isDropped ? "dropped" : outcomeOf(*object));
    return answer;
}

Answer RequestDispatcher::Impl::deliveryFailure() {
    try {
        throw;
    } catch (const connector::NoService& error) {
        return failure(404, error.what());
    } catch (const connector::ServiceStopped& error) {
        return failure(503, error.what());
    } catch (const std::exception& error) {
        log().error("A request failed: " + connector::errorText(error));
        return failure(500, connector::errorText(error));
    } catch (...) {
        log().error("A request failed with an error of unknown kind.");
        return failure(500, "The service failed.");
    }
}

void RequestDispatcher::Impl::finish(const Request& request, Answer answer) {
    if (answer.status != 200) count(request.typeName, "refused");
    request.done(std::move(answer));
}

void RequestDispatcher::Impl::count(const std::string& typeName, const std::string& outcome) {
    const connector::MutexLock lock(mutex_);
    ++outcomes_[{typeName, outcome}];
}

std::size_t RequestDispatcher::Impl::pending() const {
    const auto now = metrics();
    return now.queued + now.running;
}

DispatcherMetrics RequestDispatcher::Impl::metrics() const {
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
void RequestDispatcher::Impl::stop() {
    for (const auto& lane : lanes_) lane->close();
    if (!isStopped_.exchange(true)) interrupt();
    // One interrupt may come before a request that was taken just now has reached its service.
    for (const auto& lane : lanes_) {
        while (!lane->waitUntilIdle(interruptInterval)) interrupt();
    }
}

void RequestDispatcher::Impl::interrupt() {
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

RequestDispatcher::RequestDispatcher(std::shared_ptr<connector::ServiceFramework> framework,
                                     std::shared_ptr<connector::json::JsonSerializer> serializer,
                                     DispatcherOptions options)
    : impl_(std::make_unique<Impl>(std::move(framework), std::move(serializer), options)) {}

RequestDispatcher::~RequestDispatcher() { stop(); }

void RequestDispatcher::submit(const std::string& typeName, Poco::JSON::Object::Ptr message,
                               std::shared_ptr<connector::common::ContextState> context, Done done) {
    impl_->submit(typeName, std::move(message), std::move(context), std::move(done));
}

void RequestDispatcher::submitUnread(std::size_t bytes, std::function<Read()> read,
                                     std::shared_ptr<connector::common::ContextState> context, Done done) {
    impl_->submitUnread(bytes, std::move(read), std::move(context), std::move(done));
}

std::size_t RequestDispatcher::pending() const { return impl_->pending(); }
DispatcherMetrics RequestDispatcher::metrics() const { return impl_->metrics(); }
void RequestDispatcher::stop() { impl_->stop(); }

}  // namespace dispatch
