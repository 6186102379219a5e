#include "SessionFeed.h"

#include <utility>

#include "JsonMembers.h"
#include "connector/json/ObjectBuilder.h"
#include "connector/wireWords.h"
#include "foundation/log/diagnostic_logger.h"
#include "messages/FrameOrigin.h"

namespace jupyter {

namespace {

// For this session alone, in which no other message has it.
constexpr const char* answerChannel = "/kernel/answer";

constexpr int unavailable = 503;
constexpr std::size_t batchBytes = std::size_t{64} << 10;
// Then other tasks of the executor have their turn.
constexpr std::size_t turnBytes = std::size_t{1} << 20;

constexpr const char* channels[] = {connector::wire::channel::output,
                                    connector::wire::channel::error,
                                    connector::wire::channel::completion,
                                    connector::wire::channel::clear,
                                    connector::wire::channel::home,
                                    connector::wire::channel::interpreter,
                                    "/eventmgr/0/clear",
                                    "/eventmgr/0/comm",
                                    "/eventmgr/0/display",
                                    "/eventmgr/0/error",
                                    "/eventmgr/0/figure",
                                    "/eventmgr/0/input",
                                    "/eventmgr/0/payload"};

}  // namespace

void SessionInterpreter::Feed::listen(std::function<void(const InterpreterEvent&)> received,
                                      std::function<bool()> hasRoom) {
    received_ = std::move(received);
    hasRoom_ = std::move(hasRoom);
    if (!received_) return session_->setWakeUp(nullptr);
    subscribe();
}

void SessionInterpreter::Feed::subscribe() {
    for (const auto* channel : channels) session_->subscribe(channel);
    session_->setWakeUp([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->wake();
    });
}

void SessionInterpreter::Feed::wake() {
    if (isScheduled_.exchange(true)) return;
    post([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->drain();
    });
}

void SessionInterpreter::Feed::post(std::function<void()> task) {
    gate_.run([&] { executor_.post(std::move(task)); });
}

void SessionInterpreter::Feed::stop() {
    session_->setWakeUp(nullptr);
    gate_.end();
    received_ = nullptr;
    awaited_.clear();
    streams_.clear();
    session_->close();
}

void SessionInterpreter::Feed::resume() {
    session_->noteReading();
    drain();
}

// What is delivered may have it called, which must not put later frames before those that are taken.
void SessionInterpreter::Feed::drain() {
    const auto self = shared_from_this();
    isScheduled_ = false;
    if (std::exchange(isDraining_, true)) return;
    for (std::size_t bytes = 0; received_ && hasRoom_();) {
        if (bytes >= turnBytes) {
            wake();
            break;
        }
        const auto taken = session_->take(batchBytes, std::chrono::milliseconds(0));
        for (const auto& frame : taken.frames) {
            bytes += frame->text().size();
            deliver(*frame);
        }
        if (taken.isClosed && received_) messages::callAndLog([&] { replaceSession(); });
        if (taken.isClosed || taken.frames.empty()) break;
    }
    isDraining_ = false;
}

void SessionInterpreter::Feed::deliver(const messages::MessageFrame& frame) {
    if (frame.channel() == answerChannel) return deliverAnswer(frame.data());
    const auto origin = messages::FrameOrigin::of(frame);
    if (frame.channel() == connector::wire::channel::completion) streams_.erase(std::string(origin.request));
    if (!received_) return;
    messages::callAndLog([&] {
        received_({.channel = frame.channel(),
                   .data = frame.data(),
                   .request = origin.request,
                   .prompt = origin.prompt,
                   .death = origin.death});
    });
}

std::uint64_t SessionInterpreter::Feed::await(Answered answered) {
    awaited_.emplace(++lastNumber_, std::move(answered));
    return lastNumber_;
}

void SessionInterpreter::Feed::await(const std::string& request, Refused refused) {
    streams_.insert_or_assign(request, std::move(refused));
}

void SessionInterpreter::Feed::refuse(const std::string& request, int status, std::string reason) {
    post([weak = weak_from_this(), request, status, reason = std::move(reason)] {
        const auto self = weak.lock();
        auto refused = self ? self->streams_.extract(request) : decltype(streams_)::node_type();
        if (refused) refused.mapped()(status, reason);
    });
}

// What is told may lead to new requests, which are for the new session.
void SessionInterpreter::Feed::replaceSession() {
    const std::string reason =
        "What comes of it cannot be told, but it may still run: " + session_->closeReason() + ".";
    foundation::log::DiagnosticLogger("jupyter").error("The interpreter's session was closed: " +
                                                       session_->closeReason());
    session_ = open_();
    subscribe();
    for (const auto& awaited : std::exchange(awaited_, {}))
        messages::callAndLog([&] { awaited.second(unavailable, reason); });
    for (const auto& stream : std::exchange(streams_, {}))
        messages::callAndLog([&] { stream.second(unavailable, reason); });
}

void SessionInterpreter::Feed::queueAnswer(messages::ClientSession& session, std::uint64_t number, int status,
                                           const std::string& text) {
    connector::json::ObjectBuilder data;
    data.add("number", number).add("status", status).add("text", text);
    const auto frame = std::make_shared<const messages::MessageFrame>(answerChannel, data.take());
    if (session.send(frame)) return;
    // A session that is closed brings nothing that it could come after.
    post([weak = weak_from_this(), frame] {
        if (const auto self = weak.lock()) self->deliverAnswer(frame->data());
    });
}

void SessionInterpreter::Feed::deliverAnswer(std::string_view data) {
    const JsonMembers answer(data);
    auto awaited = awaited_.extract(answer.number("number"));
    if (!awaited) return;
    messages::callAndLog(
        [&] { awaited.mapped()(static_cast<int>(answer.number("status")), answer.text("text")); });
}

}  // namespace jupyter
