#include "ports/WorkerLink.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/post.hpp>
#include <fcntl.h>
#include <sys/socket.h>

#include "connector/common/DataBuffer.h"
#include "connector/common/RequestOrigin.h"
#include "connector/json/ObjectBuilder.h"
#include "connector/json/escape.h"
#include "connector/wireWords.h"
#include "foundation/log/diagnostic_logger.h"

namespace gateway::ports {

namespace asio = boost::asio;
namespace log = foundation::log;
namespace wire = connector::wire;
using connector::MutexLock;
using connector::common::ClientRequests;
using connector::common::ContextState;
using connector::common::RequestOrigin;
using connector::json::ObjectBuilder;
using links::BadFrame;
using links::Frame;
using links::Kind;

namespace {

constexpr std::size_t turnBytes = std::size_t{64} << 10;  // so little that an interrupt soon has its turn
// What a process had written when it died: what its socket holds, and not for ever.
constexpr std::size_t mostLastTurns = 1000;

constexpr auto pingInterval = std::chrono::seconds(1);
constexpr auto silentAfter = std::chrono::seconds(5);
constexpr std::uint64_t deafAfterMs = 1000;
constexpr auto paceInterval = std::chrono::milliseconds(5);
// A process that is stopped answers nothing, and clients wait for whether their code is taken.
constexpr auto replyTime = std::chrono::seconds(10);

int copyOf(int socket) {
    const int copy = ::fcntl(socket, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) throw std::system_error(errno, std::generic_category(), "A link cannot be opened");
    return copy;
}

bool isOutcome(std::string_view name) {
    constexpr std::string_view names[] = {"", "success", "error", "timeout", "fault", "dropped", "refused"};
    return std::ranges::find(names, name) != std::end(names);
}

/// The values of a context that go with a request.
template <class Head>
void addContext(Head& head, const Work& work) {
    const auto& context = *work.context;
    head.clientType = work.clientType;
    const boost::any capabilities = context.get("numoraCapabilities");
    if (const auto* names = boost::any_cast<std::vector<std::string>>(&capabilities)) {
        head.hasCapabilities = true;
        head.capabilities = *names;
    }
    head.arrivedNs = context.template getOr<std::uint64_t>(connector::common::requestArrival, 0);
    head.startedMs = context.template getOr<std::uint64_t>("requestStartTime", 0);
    const auto client =
        context.template getOr<std::shared_ptr<ClientRequests>>(ClientRequests::contextKey, nullptr);
    if (client) head.client = client->number();
}

}  // namespace

WorkerLink::Lane::Lane(WorkerLink& owner, int socket)
    : stream(owner.context_, copyOf(socket)),
      writer(
          stream.native_handle(), [this, &owner] { owner.waitToWrite(*this); },
          [&owner] {
              // From whatever thread has sent, which may hold what the events need.
              asio::post(owner.strand_, [weak = owner.weak_from_this()] {
                  if (const auto link = weak.lock()) link->noteBroken("it takes nothing any more");
              });
          }) {}

WorkerLink::WorkerLink(asio::io_context& context, messages::LocalMessageService& messages, int mainSocket,
                       int controlSocket, links::Start start, Events events)
    : context_(context),
      messages_(messages),
      startHead_(std::move(start)),
      events_(std::move(events)),
      strand_(asio::make_strand(context)),
      main_(*this, mainSocket),
      control_(*this, controlSocket),
      paces_([this](std::uint64_t client, bool isBehind) {
          links::PaceHead head;
          head.isBehind = isBehind;
          main_.writer.send({.kind = Kind::Pace, .id = client, .head = head.encode()});
      }),
      interest_(messages, main_.writer),
      ping_(context),
      paceTimer_(context) {}

WorkerLink::~WorkerLink() = default;

void WorkerLink::start() {
    asio::post(strand_, [self = shared_from_this()] {
        self->buffer_.resize(turnBytes);
        self->waitToRead(self->main_);
        self->waitToRead(self->control_);
        self->armPing();
    });
}

void WorkerLink::waitToRead(Lane& lane) {
    if (isOver_ || lane.isOver) return;
    lane.stream.async_wait(Stream::wait_read, asio::bind_executor(strand_, [self = shared_from_this(),
                                                                            &lane](const auto& error) {
                               if (error || self->isOver_) return;
                               if (self->read(lane) != Turn::Over) self->waitToRead(lane);
                           }));
}

WorkerLink::Turn WorkerLink::read(Lane& lane) {
    if (lane.isOver) return Turn::Over;
    const auto count = ::recv(lane.stream.native_handle(), buffer_.data(), buffer_.size(), MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return Turn::Empty;
    if (count <= 0) {
        lane.isOver = true;
        noteBroken("it has closed its connection");
        return Turn::Over;
    }
    try {
        lane.reader.feed(std::string_view(buffer_.data(), static_cast<std::size_t>(count)),
                         [this](Frame&& frame) { take(std::move(frame)); });
        return Turn::More;
    } catch (const std::exception& error) {
        lane.isOver = true;
        noteBroken(std::string("it sends what cannot be read: ") + error.what());
        return Turn::Over;
    }
}

void WorkerLink::waitToWrite(Lane& lane) {
    asio::post(strand_, [weak = weak_from_this(), &lane] {
        const auto self = weak.lock();
        if (!self || self->isOver_) return;
        lane.stream.async_wait(Stream::wait_write,
                               asio::bind_executor(self->strand_, [self, &lane](const auto& error) {
                                   if (!error) lane.writer.sendMore();
                               }));
    });
}

void WorkerLink::noteBroken(const std::string& reason) {
    if (isOver_ || std::exchange(isBroken_, true)) return;
    events_.broken(reason);
}

void WorkerLink::take(Frame&& frame) {
    if (frame.kind == Kind::Hello) return takeHello(frame);
    if (!hasHello_) throw BadFrame("a frame before Hello");
    switch (frame.kind) {
        case Kind::Listen:
            return interest_.listen(frame.head);
        case Kind::Unlisten:
            return interest_.unlisten(frame.head);
        case Kind::Watch:
            return interest_.watch(frame.id, frame.head);
        case Kind::Unwatch:
            return interest_.unwatch(frame.id);
        case Kind::Ready:
            return events_.ready();
        case Kind::Response:
            return takeResponse(std::move(frame));
        case Kind::Reply: {
            const auto head = links::ReplyHead::decode(frame.head);
            if (head.status != 0) refused_.insert(frame.id);
            if (const auto taken = inFlight_.takeReply(frame.id)) {
                taken({static_cast<int>(head.status), head.reason});
            }
            return;
        }
        case Kind::Ended: {
            const auto stream = inFlight_.takeStream(frame.id);
            if (!stream) throw BadFrame("the end of what was not begun");
            if (refused_.erase(frame.id) == 0) noteEnding(stream->name);
            if (stream->reservation) stream->reservation->release();
            return events_.streamEnded(stream->clientType);
        }
        case Kind::Publish:
            return takePublish(frame);
        case Kind::State: {
            const MutexLock lock(mutex_);
            state_.activity = links::StateHead::decode(frame.head).state;
            return;
        }
        case Kind::Log: {
            const auto head = links::LogHead::decode(frame.head);
            const auto severity = static_cast<log::Severity>(std::min(head.severity, std::uint64_t{3}));
            if (!log::DiagnosticLogger::isEnabled(severity)) return;
            return log::write({.logger = head.logger,
                               .severity = severity,
                               .text = frame.body,
                               .interpreter = startHead_.id});
        }
        case Kind::Pong:
            return takePong(frame);
        default:
            throw BadFrame("a frame of a kind that is the gateway's own");
    }
}

void WorkerLink::takeHello(const Frame& frame) {
    const auto hello = links::Hello::decode(frame.head);
    if (std::exchange(hasHello_, true)) throw BadFrame("a second Hello");
    if (hello.protocol != links::protocolVersion) {
        throw BadFrame("it speaks version " + std::to_string(hello.protocol) +
                       " of the protocol, and this server version " + std::to_string(links::protocolVersion));
    }
    main_.writer.send({.kind = Kind::Start, .head = startHead_.encode()});
}

// The name of a request is free before its client knows of its completion, which comes as the next message. A
// process that dies between the two must not leave the client waiting.
void WorkerLink::noteEnding(const std::string& name) {
    constexpr std::size_t most = 1000;  // of those to which no completion belongs
    if (ending_.size() < most) ending_.insert(name);
}

void WorkerLink::takePublish(const Frame& frame) {
    const auto head = links::PublishHead::decode(frame.head);
    if (!head.request.empty() && !RequestOrigin::isName(head.request)) throw BadFrame("a wrong name");
    if (head.channel == wire::channel::prompt) lastPrompt_ = frame.body;
    if (head.channel == wire::channel::completion) ending_.erase(head.request);
    publish(head.channel, frame.body,
            {.request = head.request,
             .pace = paces_.paceOf(head.request),
             .prompt = head.prompt,
             .echo = head.echo});
    if (!head.request.empty() && paces_.check(head.request)) pollPaces();
}

void WorkerLink::publish(const std::string& channel, std::string_view data, RequestOrigin origin) {
    const auto context = std::make_shared<ContextState>();
    context->set(ClientInterest::fromWorker, true);
    RequestOrigin::set(*context, std::move(origin));
    const connector::common::CurrentContext current(context);
    messages_.publish(channel, connector::common::DataBuffer(data));
}

void WorkerLink::takeResponse(Frame&& frame) {
    auto head = links::ResponseHead::decode(frame.head);
    if (head.status < 200 || head.status > 599 || !isOutcome(head.outcome)) throw BadFrame("a wrong answer");
    // Given up because the process is to end: its end is the answer.
    if (isGivenUp_ && head.outcome == "fault") return;
    const auto request = inFlight_.takeRequest(frame.id);
    if (!request) throw BadFrame("an answer to what was not asked");
    events_.counted(request->typeName, head.outcome);
    request->answered({.status = static_cast<int>(head.status),
                       .json = std::move(frame.body),
                       .type = std::move(head.type),
                       .problem = std::move(head.problem),
                       .retrySeconds = static_cast<int>(head.retrySeconds),
                       .isDropped = head.isDropped});
}

void WorkerLink::takePong(const Frame& frame) {
    auto head = links::PongHead::decode(frame.head);
    const MutexLock lock(mutex_);
    lastPong_ = Clock::now();
    state_.request = std::move(head.request);
    state_.runningMs = head.runningMs;
    state_.health = head.deafMs >= deafAfterMs ? "deaf" : "ok";
}

WorkerLink::State WorkerLink::state() const {
    const auto now = Clock::now();
    const MutexLock lock(mutex_);
    State state = state_;
    if (now - lastPong_ > silentAfter) state.health = "silent";
    if (!state.request.empty()) {
        const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(now - lastPong_);
        state.runningMs += static_cast<std::uint64_t>(since.count());
    }
    return state;
}

bool WorkerLink::send(Work& work) { return work.isStream() ? sendStream(work) : sendRequest(work); }

bool WorkerLink::sendRequest(Work& work) {
    links::RequestHead head;
    head.type = work.name;
    head.interrupts = work.isInterrupt() ? 0 : interrupts_.load();
    addContext(head, work);
    Frame frame{.kind = work.isInterrupt() ? Kind::Interrupt : Kind::Request, .head = head.encode()};
    if (frame.head.size() > links::maxHeadBytes) {
        work.refuse(400, "The context of the request is too large.");
        return true;
    }
    InFlight::Request request{
        .typeName = work.name, .bytes = work.json->size(), .answered = std::move(work.answered)};
    frame.id = inFlight_.add(std::move(request));
    if (frame.id == 0) {
        work.answered = std::move(request.answered);
        return false;
    }
    if (frame.kind == Kind::Interrupt) ++interrupts_;
    frame.body = *work.json;
    auto& lane = frame.kind == Kind::Interrupt ? control_ : main_;
    lane.writer.send(std::move(frame));
    return true;
}

bool WorkerLink::sendStream(Work& work) {
    const auto origin = RequestOrigin::of(*work.context);
    links::MessageHead head;
    head.channel = work.name;
    head.request = origin->request;
    head.isPaced = origin->pace != nullptr;
    const boost::any prompt = work.context->get(RequestOrigin::forPrompt);
    if (const auto* number = boost::any_cast<std::uint64_t>(&prompt)) {
        head.hasPrompt = true;
        head.prompt = *number;
    }
    head.interrupts = interrupts_;
    addContext(head, work);
    Frame frame{.kind = Kind::Message, .head = head.encode()};
    if (frame.head.size() > links::maxHeadBytes) {
        work.refuse(400, "The context of the request is too large.");
        return true;
    }
    InFlight::Stream stream{.name = origin->request,
                            .bytes = work.json->size(),
                            .clientType = work.clientType,
                            .taken = std::move(work.taken),
                            .replyUntil = Clock::now() + replyTime,
                            .reservation = origin->reservation,
                            .ofClient = work.ofClient};
    paces_.add(stream.name, head.client, origin->pace);
    frame.id = inFlight_.add(std::move(stream));
    if (frame.id == 0) {
        work.taken = std::move(stream.taken);
        return false;
    }
    events_.streamStarted(work.clientType);
    frame.body = *work.json;
    main_.writer.send(std::move(frame));
    return true;
}

void WorkerLink::requestStop(std::chrono::milliseconds limit, bool isGivenUp) {
    isGivenUp_ = isGivenUp;
    links::StopHead head;
    head.ms = static_cast<std::uint64_t>(limit.count());
    control_.writer.send({.kind = Kind::Stop, .head = head.encode()});
}

void WorkerLink::armPing() {
    ping_.expires_after(pingInterval);
    ping_.async_wait(asio::bind_executor(strand_, [weak = weak_from_this()](const auto& error) {
        const auto self = weak.lock();
        if (error || !self || self->isOver_) return;
        links::PingHead head;
        head.logLevel = static_cast<std::uint64_t>(log::level());
        self->control_.writer.send({.kind = Kind::Ping, .id = ++self->pings_, .head = head.encode()});
        for (const auto& taken : self->inFlight_.takeOverdue(Clock::now())) {
            taken({504, "the interpreter does not answer; it may run the code later"});
        }
        self->armPing();
    }));
}

void WorkerLink::pollPaces() {
    if (std::exchange(isPolling_, true) || isOver_) return;
    paceTimer_.expires_after(paceInterval);
    paceTimer_.async_wait(asio::bind_executor(strand_, [weak = weak_from_this()](const auto& error) {
        const auto self = weak.lock();
        if (error || !self || self->isOver_) return;
        self->isPolling_ = false;
        if (self->paces_.checkAll()) self->pollPaces();
    }));
}

void WorkerLink::die(const supervisor::DeathRecord& record, std::function<void()> then) {
    asio::post(strand_, [self = shared_from_this(), record, then = std::move(then)] {
        for (std::size_t turns = 0; turns < mostLastTurns; ++turns) {
            if (self->read(self->main_) != Turn::More) break;
        }
        self->shut();
        self->answerAll(record);
        then();
    });
}

void WorkerLink::shut() {
    isOver_ = true;
    interest_.clear();
    ping_.cancel();
    paceTimer_.cancel();
    for (Lane* lane : {&main_, &control_}) {
        lane->writer.close();
        lane->stream.cancel();
    }
}

void WorkerLink::answerAll(const supervisor::DeathRecord& record) {
    const auto all = inFlight_.takeAll();
    const std::string sentence = record.sentence();
    const std::string brief = record.brief();
    for (const auto& request : all.requests) {
        events_.counted(request.typeName, "died");
        request.answered({.status = 502,
                          .json = ObjectBuilder().add("error", sentence).addJson("death", brief).take(),
                          .problem = sentence,
                          .death = brief});
    }
    for (const auto& stream : all.streams) endStream(stream, record);
    for (const auto& name : ending_) tellFailure(name, record);
    if (!lastPrompt_.empty() && lastPrompt_ != R"("BASE_PROMPT")") {
        publish(wire::channel::prompt, R"("BASE_PROMPT")", {.request = {}});
    }
}

void WorkerLink::endStream(const InFlight::Stream& stream, const supervisor::DeathRecord& record) {
    if (stream.reservation) stream.reservation->release();
    stream.ofClient->end();
    events_.streamEnded(stream.clientType);
    // It may have run already, so it ends as what was taken does.
    if (stream.taken) stream.taken({});
    tellFailure(stream.name, record);
}

void WorkerLink::tellFailure(const std::string& name, const supervisor::DeathRecord& record) {
    const auto pace = paces_.paceOf(name);
    publish(wire::channel::error, connector::json::quoted(record.sentence() + "\n"),
            {.request = name, .pace = pace, .death = record.brief()});
    publish(wire::channel::completion, connector::json::quoted(wire::completion::failure),
            {.request = name, .pace = pace, .death = record.brief()});
}

}  // namespace gateway::ports
