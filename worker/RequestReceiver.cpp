#include "RequestReceiver.h"

#include <chrono>
#include <exception>
#include <utility>

#include "capabilities/capabilities.h"
#include "connector/common/RequestOrigin.h"
#include "connector/common/requests.h"
#include "connector/errorText.h"
#include "foundation/log/diagnostic_logger.h"

namespace worker {

using connector::common::ClientRequests;
using connector::common::ContextScope;
using connector::common::ContextState;
using connector::common::RequestOrigin;
using connector::common::RequestRefusal;
using links::Kind;

namespace {

constexpr std::size_t mostInterrupts = 1000;
constexpr std::size_t longestProblem = 4096;
constexpr auto interruptTime = std::chrono::milliseconds(600);  // a little more than an answer takes

// What the heads of requests and of messages have in common.
template <class Head>
std::shared_ptr<ContextState> contextFrom(const Head& head, const std::string& type) {
    auto context = std::make_shared<ContextState>();
    context->set(requestTypeKey, type);
    if (!head.clientType.empty()) context->set("clientType", head.clientType, ContextScope::Client);
    if (head.hasCapabilities) {
        context->set("numoraCapabilities", capabilities::CapabilityList(head.capabilities),
                     ContextScope::Client);
    }
    if (head.arrivedNs != 0) {
        context->set("requestStartTime", head.startedMs);
        context->set(connector::common::requestArrival, head.arrivedNs);
    }
    return context;
}

// What the gateway is told of a streamed request: whether it is taken, then that it has ended. It may end
// before the handlers have returned; its client must not know of that before its name is free again.
//
// Threads: any.  Locks: mutex_; the writer's is taken under it, so that the two keep their order.
class StreamedReply {
public:
    StreamedReply(std::shared_ptr<links::FrameWriter> writer, std::uint64_t id)
        : writer_(std::move(writer)), id_(id) {}

    void reply(const RequestRefusal& refusal) CONNECTOR_EXCLUDES(mutex_) {
        const connector::MutexLock lock(mutex_);
        replyLocked(refusal);
    }
    void end(const RequestRefusal& refusal = {}) noexcept CONNECTOR_EXCLUDES(mutex_) {
        try {
            const connector::MutexLock lock(mutex_);
            replyLocked(refusal);
            writer_->send({.kind = Kind::Ended, .id = id_, .head = {}, .body = {}});
        } catch (const std::exception& error) {
            foundation::log::DiagnosticLogger("worker").error("The end of a request could not be told: " +
                                                              std::string(error.what()));
        }
    }

private:
    void replyLocked(const RequestRefusal& refusal) CONNECTOR_REQUIRES(mutex_) {
        if (std::exchange(isReplied_, true)) return;
        const links::ReplyHead head{static_cast<std::uint64_t>(refusal.status), refusal.reason};
        writer_->send({.kind = Kind::Reply, .id = id_, .head = head.encode(), .body = {}});
    }

    const std::shared_ptr<links::FrameWriter> writer_;
    const std::uint64_t id_;
    connector::Mutex mutex_;
    bool isReplied_ CONNECTOR_GUARDED_BY(mutex_) = false;
};

}  // namespace

RequestReceiver::RequestReceiver(std::shared_ptr<links::FrameWriter> main,
                                 std::shared_ptr<links::FrameWriter> control, LinkMessageService& messages)
    : main_(std::move(main)),
      control_(std::move(control)),
      messages_(messages),
      interrupts_(1, mostInterrupts) {}

void RequestReceiver::start(Link::Services services) {
    dispatch::DispatcherOptions options;
    options.isReadingInput = std::move(services.isReadingInput);
    options.dequeMode = std::move(services.dequeMode);
    owned_ = std::make_unique<dispatch::RequestDispatcher>(
        std::move(services.framework), std::move(services.serializer), std::move(options));
    dispatcher_ = owned_.get();
}

void RequestReceiver::stop() {
    interrupts_.finish();
    if (owned_) owned_->stop();
}

void RequestReceiver::request(links::Frame frame) {
    const auto head = links::RequestHead::decode(frame.head);
    const auto id = frame.id;
    waitForInterrupts(head.interrupts);
    try {
        submit(*main_, std::move(frame), head);
    } catch (const std::bad_alloc&) {  // code may have taken all that the interpreter may have
        respond(*main_, id, dispatch::errorAnswer(503, "The interpreter has no memory for the request."));
    }
}

// Taking back what waits may take a while, and Ping and Stop must not wait for it.
void RequestReceiver::interrupt(links::Frame frame) {
    const auto head = links::RequestHead::decode(frame.head);
    if (head.client != 0) clients_.noteInterrupt(head.client, head.arrivedNs);
    const auto id = frame.id;
    const auto shared = std::make_shared<links::Frame>(std::move(frame));
    const auto run = [this, head, shared] {
        if (head.client != 0) clients_.withdraw(head.client);
        submit(*control_, std::move(*shared), head, [this] { noteInterrupted(); });
    };
    if (interrupts_.submit({.run = run}) == connector::WorkerPool::Outcome::Accepted) return;
    noteInterrupted();
    respond(*control_, id, dispatch::errorAnswer(429, "Too many requests are waiting.", 1));
}

void RequestReceiver::noteInterrupted() {
    const connector::MutexLock lock(mutex_);
    ++interruptsOver_;
    interrupted_.notify_all();
}

void RequestReceiver::waitForInterrupts(std::uint64_t count) {
    if (count == 0) return;
    const auto until = std::chrono::steady_clock::now() + interruptTime;
    connector::MutexLock lock(mutex_);
    while (interruptsOver_ < count) {
        if (interrupted_.wait_until(lock.native(), until) == std::cv_status::timeout) return;
    }
}

void RequestReceiver::submit(links::FrameWriter& writer, links::Frame frame, const links::RequestHead& head,
                             const std::function<void()>& then) {
    const auto answered = [&writer, id = frame.id, then](dispatch::Answer answer) {
        if (then) then();
        respond(writer, id, std::move(answer));
    };
    auto* const dispatcher = dispatcher_.load();
    if (dispatcher == nullptr) return answered(dispatch::errorAnswer(503, "The interpreter is starting."));
    auto context = contextFrom(head, head.type);
    RequestOrigin::set(*context, {.request = {}, .pace = clients_.paceOf(0)});
    dispatcher->submit(head.type, std::make_shared<const std::string>(std::move(frame.body)),
                       std::move(context), answered);
}

void RequestReceiver::respond(links::FrameWriter& writer, std::uint64_t id,
                              dispatch::Answer answer) noexcept {
    const auto send = [&writer, id](dispatch::Answer what) {
        const links::ResponseHead head{.status = static_cast<std::uint64_t>(what.status),
                                       .type = std::move(what.type),
                                       .outcome = std::move(what.outcome),
                                       .problem = what.problem.substr(0, longestProblem),
                                       .retrySeconds = static_cast<std::uint64_t>(what.retrySeconds),
                                       .isDropped = what.isDropped};
        writer.send({.kind = Kind::Response, .id = id, .head = head.encode(), .body = std::move(what.json)});
    };
    const foundation::log::DiagnosticLogger log("worker");
    try {
        send(std::move(answer));
    } catch (const std::exception& error) {
        log.error("A response could not be sent: " + connector::errorText(error));
        try {
            send(dispatch::errorAnswer(500, "The response could not be sent."));
        } catch (const std::exception&) {
            log.error("Nor could an error be sent in its place.");
        }
    }
}

void RequestReceiver::setPace(const links::Frame& frame) {
    clients_.setBehind(frame.id, links::PaceHead::decode(frame.head).isBehind);
}

RequestReceiver::Context RequestReceiver::contextOf(const links::MessageHead& head) {
    auto context = contextFrom(head, head.channel);
    if (head.hasPrompt) context->set(RequestOrigin::forPrompt, head.prompt);
    if (head.client != 0) {
        context->set(ClientRequests::contextKey, clients_.requestsOf(head.client, head.arrivedNs));
    }
    return context;
}

RequestReceiver::Reservation RequestReceiver::reserve(const std::string& name,
                                                      std::function<void()> released) {
    auto* const dispatcher = dispatcher_.load();
    if (dispatcher == nullptr) throw RequestRefusal{503, "the interpreter does not take requests now"};
    auto reservation = dispatcher->names()->reserve(name, std::move(released));
    if (reservation) return reservation;
    throw RequestRefusal{409, "ext.connector.request must not be the name of a request that has not ended"};
}

void RequestReceiver::message(links::Frame frame) {
    const auto head = links::MessageHead::decode(frame.head);
    waitForInterrupts(head.interrupts);
    const auto reply = frame.id != 0 ? std::make_shared<StreamedReply>(main_, frame.id) : nullptr;
    RequestOrigin origin{.request = head.request, .pace = clients_.paceOf(head.isPaced ? head.client : 0)};
    try {
        if (reply) origin.reservation = reserve(head.request, [reply] { reply->end(); });
    } catch (const RequestRefusal& refusal) {
        return reply->end(refusal);
    }
    const auto context = contextOf(head);  // with its end, that of a refused request has come
    RequestOrigin::set(*context, std::move(origin));
    messages_.deliver({head.channel, std::move(frame.body), context});
    if (reply) reply->reply(context->getOr(RequestRefusal::contextKey, RequestRefusal()));
}

}  // namespace worker
