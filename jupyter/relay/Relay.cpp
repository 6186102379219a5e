#include "jupyter/relay/Relay.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <exception>
#include <utility>

#include "connector/identifiers.h"
#include "connector/json/escape.h"
#include "core/Lifetime.h"
#include "core/Publisher.h"
#include "core/Request.h"
#include "foundation/core/utcText.h"
#include "foundation/log/diagnostic_logger.h"
#include "jupyter/wire/WebSocket.h"
#include "jupyter/wire/rawMembers.h"

namespace jupyter {

using Members = connector::json::ObjectBuilder;

namespace {

const foundation::log::DiagnosticLogger& log() {
    static const foundation::log::DiagnosticLogger logger("jupyter");
    return logger;
}

Message interruption() {
    Message message{.channel = Channel::Control};
    message.header = Members()
                         .add("msg_id", connector::randomUuid())
                         .add("msg_type", "interrupt_request")
                         .add("session", connector::randomUuid())
                         .add("username", "numora")
                         .add("date", foundation::core::utcText(std::chrono::system_clock::now()))
                         .add("version", "5.5")
                         .take();
    return message;
}

bool isCell(const Request& request) { return request.type == "execute_request"; }

}  // namespace

Relay::Relay(Executor& executor, Outlet& outlet, std::unique_ptr<ServerSocket> server, RelayOptions options)
    : executor_(executor),
      options_(std::move(options)),
      clients_(std::make_unique<Publisher>(outlet)),
      lifetime_(std::make_unique<Lifetime>()),
      server_(std::move(server)) {
    server_->start(*this);
}

Relay::~Relay() = default;

void Relay::post(std::function<void()> task) { executor_.post(lifetime_->guarded(std::move(task))); }

void Relay::opened() {
    post([this] {
        absence_.clear();
        if (isTold_) tell("The server is back.");
        isTold_ = false;
    });
}

void Relay::received(std::string frame) {
    post([this, frame = std::move(frame)] { take(frame); });
}

void Relay::lost(std::string reason, std::uint64_t confirmed, std::uint64_t written) {
    post([this, reason = std::move(reason), confirmed, written] { lose(reason, confirmed, written); });
}

void Relay::ended(std::string reason) {
    post([this, reason = std::move(reason)] { end(reason); });
}

void Relay::subscribed() { clients_->publish("{}", "iopub_welcome", Members().add("subscription", "")); }

void Relay::raised(int signal) {
    if (signal == SIGINT) server_->send(++lastNumber_, wire::encodeV1(interruption()).data);
    if (signal == SIGTERM) end({});
}

void Relay::roomIsBack() {
    if (std::exchange(isRoomWanted_, false)) server_->readOn();
}

void Relay::receive(Message message) {
    RequestPtr request;
    try {
        request = Request::read(std::move(message));
    } catch (const std::exception& error) {
        log().warning(std::string("A message is dropped: ") + error.what());
        return;
    }
    if (request->type == "shutdown_request") return release(request);
    if (isOver_) return fail(request, "the relay has ended");
    // To the server all clients are one.
    if (request->message.channel == Channel::Stdin && request->message.route != asked_) return;
    const auto number = ++lastNumber_;
    // What has a reply, or may ask for input.
    const bool isRequest = request->type.ends_with("_request");
    if (isRequest) remember(number, request);
    if (!server_->send(number, wire::encodeV1(request->message).data)) {
        forget(number);
        if (isRequest) fail(request, "too much waits for the server");
    } else if (!absence_.empty() && !isTold_ && isCell(*request)) {
        tell(absence_);
    }
}

void Relay::remember(std::uint64_t number, const RequestPtr& request) {
    if (requests_.size() >= mostRequests) forget(requests_.begin()->first);
    requests_.emplace(number, request);
    numbers_.insert_or_assign(request->id, number);
}

void Relay::forget(std::uint64_t number) {
    const auto found = requests_.find(number);
    if (found == requests_.end()) return;
    numbers_.erase(found->second->id);
    requests_.erase(found);
}

void Relay::take(const std::string& frame) {
    try {
        Message message = wire::decodeV1(frame);
        const bool isPublic = message.channel == Channel::Iopub;
        const auto found =
            isPublic ? numbers_.end() : numbers_.find(std::string(wire::textIn(message.parent, "msg_id")));
        if (found != numbers_.end()) {
            const auto number = found->second;
            message.route = requests_.at(number)->message.route;
            if (message.channel == Channel::Stdin) {
                asked_ = message.route;
            } else {
                forget(number);
            }
        }
        if (isPublic || !message.route.empty()) clients_->outlet().send(std::move(message));
    } catch (const std::exception& error) {
        log().warning(std::string("A message of the server is dropped: ") + error.what());
    }
    isRoomWanted_ = !clients_->outlet().hasRoom();
    if (!isRoomWanted_) server_->readOn();
}

void Relay::lose(const std::string& reason, std::uint64_t confirmed, std::uint64_t written) {
    log().error(reason);
    for (auto next = requests_.upper_bound(confirmed); next != requests_.end() && next->first <= written;
         next = requests_.upper_bound(confirmed)) {
        fail(next->second, reason + ", with this request on its way; it may have run");
        forget(next->first);
    }
    absence_ = reason + ". Trying again.";
    isTold_ = false;
    tell(absence_);
}

void Relay::end(const std::string& reason) {
    if (std::exchange(isOver_, true)) return;
    numbers_.clear();
    for (const auto& [number, request] : std::exchange(requests_, {})) {
        fail(request, reason.empty() ? "the kernel was shut down" : reason);
    }
    options_.ended(reason);
}

void Relay::release(const RequestPtr& request) {
    bool isRestart = false;
    try {
        isRestart = wire::valueOf(wire::rawMembers(request->message.content), "restart") == "true";
    } catch (const std::exception&) {
        // Whatever it says, the relay is to end.
    }
    clients_->status(request->message.header, "busy");
    options_.release(isRestart, [this, request, isRestart](const std::string& problem) {
        post([this, request, isRestart, problem] {
            const Members restart = Members().add("restart", isRestart);
            if (problem.empty()) {
                clients_->reply(*request, Members().add("status", "ok").addMembers(restart));
            } else {
                clients_->replyError(*request, ErrorText::of("ServerError", problem), restart);
            }
            clients_->status(request->message.header, "idle");
            end({});
        });
    });
}

void Relay::fail(const RequestPtr& request, const std::string& reason) {
    const auto error = ErrorText::of("ConnectionError", reason);
    if (isCell(*request)) clients_->error(request->message.header, error);
    clients_->replyError(*request, error);
    clients_->status(request->message.header, "idle");
}

void Relay::tell(const std::string& line) {
    const auto cell =
        std::ranges::find_if(requests_, [](const auto& entry) { return isCell(*entry.second); });
    if (cell == requests_.end()) return;
    isTold_ = true;
    clients_->stream(cell->second->message.header, "stderr",
                     connector::json::quoted("numora: " + line + "\n"));
}

}  // namespace jupyter
