#include "jupyter/relay/Relay.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <exception>
#include <stdexcept>
#include <utility>

#include "connector/identifiers.h"
#include "connector/json/escape.h"
#include "core/Lifetime.h"
#include "core/Publisher.h"
#include "core/Request.h"
#include "core/StopOnError.h"
#include "foundation/core/utcText.h"
#include "foundation/log/diagnostic_logger.h"
#include "jupyter/wire/WebSocket.h"
#include "jupyter/wire/rawMembers.h"
#include "relay/RunningJob.h"

namespace jupyter {

using Members = connector::json::ObjectBuilder;

namespace {

const foundation::log::DiagnosticLogger& log() {
    static const foundation::log::DiagnosticLogger logger("jupyter");
    return logger;
}

// The key at a terminal, which input takes for its end.
constexpr std::string_view endOfInput = "\x04";

constexpr auto timeToAskAgain = std::chrono::seconds(1);

// A message of the relay's own.
Message made(Channel channel, std::string_view type) {
    static const std::string session = connector::randomUuid();
    Message message{.channel = channel};
    message.header = Members()
                         .add("msg_id", connector::randomUuid())
                         .add("msg_type", type)
                         .add("session", session)
                         .add("username", "numora")
                         .add("date", foundation::core::utcText(std::chrono::system_clock::now()))
                         .add("version", "5.5")
                         .take();
    return message;
}

bool isCell(const Request& request) { return request.type == "execute_request"; }
// What has a reply, or may ask for input.
bool isAnswered(const Request& request) { return request.type.ends_with("_request"); }

// A cell whose error aborts those that wait.
bool stopsOnError(const Request& request) {
    if (!isCell(request)) return false;
    const auto content = wire::rawMembers(request.message.content);
    return wire::valueOf(content, "stop_on_error") != "false" && wire::valueOf(content, "silent") != "true";
}

bool isIdle(std::string_view type, const Message& message) {
    return type == "status" && wire::textIn(message.content, "execution_state") == "idle";
}

}  // namespace

Relay::Relay(Executor& executor, Outlet& outlet, std::unique_ptr<ServerSocket> server, RelayOptions options)
    : executor_(executor),
      options_(std::move(options)),
      clients_(std::make_unique<Publisher>(outlet)),
      stop_(std::make_unique<StopOnError>()),
      running_(std::make_unique<RunningJob>()),
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
        askWhatRuns();
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
    if (signal == SIGINT) interrupt();
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
    if (isOver_) return refuse(request, "the relay has ended");
    if (request->type == "shutdown_request") return release(request);
    // To the server all clients are one.
    if (request->message.channel == Channel::Stdin && request->message.route != asked_) return;
    if (isCell(*request) && stop_->covers(*request)) return clients_->abort(*request);
    try {
        pass(request);
    } catch (const std::exception& error) {
        refuse(request, error.what());
    }
}

void Relay::pass(const RequestPtr& request) {
    if (isAnswered(*request)) {
        if (requests_.size() >= mostRequests)
            throw std::runtime_error("at most " + std::to_string(mostRequests) + " requests may wait");
        if (numbers_.contains(request->id))
            throw std::runtime_error("msg_id must not be that of another request");
    }
    auto frame = wire::encodeV1(request->message).data;
    if (frame.size() > mostBytes) throw std::runtime_error("a message must have at most 16 MiB");
    wire::decodeV1(frame);  // as the server does
    const auto number = lastNumber_ + 1;
    if (!server_->send(number, std::move(frame))) throw std::runtime_error("too much waits for the server");
    lastNumber_ = number;
    if (!isAnswered(*request)) return;
    requests_.emplace(number, request);
    numbers_.emplace(request->id, number);
    if (!absence_.empty() && !isTold_ && isCell(*request)) isTold_ = tell(absence_);
}

void Relay::refuse(const RequestPtr& request, const std::string& reason) {
    const std::string& header = request->message.header;
    if (request->message.channel == Channel::Stdin) {
        tell("The answer was not sent: " + reason + ".");
    } else if (clients_->status(header, "busy"); isAnswered(*request)) {
        fail(request, ErrorText::of("Refused", reason));
    } else {
        clients_->stream(header, "stderr", connector::json::quoted("numora: " + reason + "\n"));
        clients_->status(header, "idle");
    }
}

void Relay::interrupt() {
    if (!send(made(Channel::Control, "interrupt_request")))
        tell("The interrupt was not sent: too much waits for the server.");
}

// The cell that asks has failed here, or ended: nobody else can answer it.
void Relay::endInput(const Message& question) {
    Message answer = made(Channel::Stdin, "input_reply");
    answer.parent = question.header;
    answer.content = Members().add("value", endOfInput).take();
    if (!send(answer)) log().warning("A question of a cell that has failed could not be answered.");
}

bool Relay::send(const Message& message) {
    if (!server_->send(lastNumber_ + 1, wire::encodeV1(message).data)) return false;
    ++lastNumber_;
    return true;
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
        const auto type = wire::textIn(message.header, "msg_type");
        if (type == "execute_input") {
            const auto count = wire::valueOf(wire::rawMembers(message.content), "execution_count");
            if (!count.empty()) count_ = count;
        }
        const bool isEnd = isIdle(type, message);
        const auto found = isPublic && !isEnd
                               ? numbers_.end()
                               : numbers_.find(std::string(wire::textIn(message.parent, "msg_id")));
        if (found != numbers_.end()) {
            const auto number = found->second;
            if (!isPublic) message.route = requests_.at(number)->message.route;
            if (message.channel == Channel::Stdin) {
                asked_ = message.route;
            } else {
                forget(number);  // what has no reply has this idle
            }
        }
        std::string running, state;
        if (isPublic && type == "status") {
            running = wire::textIn(message.parent, "msg_id");
            state = wire::textIn(message.content, "execution_state");
        }
        if (isPublic || !message.route.empty()) {
            clients_->outlet().send(std::move(message));
        } else if (type == "input_request") {
            endInput(message);
        }
        if (!state.empty()) noteState(running, state);
    } catch (const std::exception& error) {
        log().warning(std::string("A message of the server is dropped: ") + error.what());
    }
    isRoomWanted_ = !clients_->outlet().hasRoom();
    if (!isRoomWanted_) server_->readOn();
}

void Relay::lose(const std::string& reason, std::uint64_t confirmed, std::uint64_t written) {
    log().error(reason);
    const auto time = std::chrono::system_clock::now();
    RequestPtr failed;  // the last one that aborts others
    std::set<std::string> sessions;
    for (auto next = requests_.upper_bound(confirmed); next != requests_.end() && next->first <= written;
         next = requests_.upper_bound(confirmed)) {
        const auto request = next->second;
        forget(next->first);
        fail(request,
             ErrorText::of("ConnectionError", reason + ", with this request on its way; it may have run"));
        if (!stopsOnError(*request)) continue;
        failed = request;
        sessions.insert(request->session);
    }
    std::set<std::uint64_t> aborted;
    if (failed) {
        aborted = abortCells(written, sessions);
        executor_.postAfter(
            StopOnError::longest,
            lifetime_->guarded([this, number = stop_->begin(*failed, time)] { stop_->end(number); }));
    }
    doubted_ = confirmed;
    absence_ = reason + ". Trying again.";
    isTold_ = tell(absence_);
    server_->goOn(std::move(aborted));
}

std::set<std::uint64_t> Relay::abortCells(std::uint64_t written, const std::set<std::string>& sessions) {
    std::set<std::uint64_t> numbers;
    for (auto next = requests_.upper_bound(written); next != requests_.end(); ++next) {
        const Request& request = *next->second;
        if (isCell(request) && sessions.contains(request.session)) numbers.insert(next->first);
    }
    for (const auto number : numbers) {
        clients_->abort(*requests_.at(number));
        forget(number);
    }
    return numbers;
}

// What was kept here meanwhile comes before the answers.
void Relay::askWhatRuns() {
    if (requests_.empty() || requests_.begin()->first > doubted_) doubted_ = 0;
    if (doubted_ == 0) return;
    const auto first = made(Channel::Shell, "kernel_info_request");
    const auto second = made(Channel::Shell, "kernel_info_request");
    running_->ask(std::string(wire::textIn(first.header, "msg_id")),
                  std::string(wire::textIn(second.header, "msg_id")));
    if (send(first) && send(second)) return;
    executor_.postAfter(timeToAskAgain, lifetime_->guarded([this] { askWhatRuns(); }));
}

void Relay::noteState(std::string_view parent, std::string_view state) {
    if (doubted_ == 0) return;
    switch (running_->take(parent, state)) {
        case RunningJob::News::None:
            return;
        case RunningJob::News::Known:
            return failLost();
        case RunningJob::News::Over:
            return askWhatRuns();
    }
}

// Cells run in their order. Of what others run nobody knows where in that it stands: its end is waited for.
void Relay::failLost() {
    std::uint64_t running = doubted_ + 1;
    if (const auto& id = running_->id()) {
        const auto found = numbers_.find(*id);
        if (found == numbers_.end() || !isCell(*requests_.at(found->second))) return;
        running = found->second;
    }
    const auto last = std::exchange(doubted_, 0);
    for (auto next = requests_.begin(); next != requests_.end() && next->first <= last;) {
        const auto [number, request] = *next++;
        if (isCell(*request) && number >= running) continue;
        forget(number);
        fail(request, ErrorText::of("ConnectionError", "the reply was lost with the connection"));
    }
}

void Relay::end(const std::string& reason) {
    if (std::exchange(isOver_, true)) return;
    options_.ended(reason);  // first: where the sockets have failed the rest throws
    numbers_.clear();
    for (const auto& [number, request] : std::exchange(requests_, {})) {
        fail(request, ErrorText::of("ConnectionError", reason.empty() ? "the kernel was shut down" : reason));
    }
}

// A second one must not restart what the first one has restarted.
void Relay::release(const RequestPtr& request) {
    if (std::exchange(isReleasing_, true)) return refuse(request, "the kernel is being shut down");
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

void Relay::fail(const RequestPtr& request, const ErrorText& error) {
    Members count;
    if (isCell(*request)) {
        clients_->error(request->message.header, error);
        count.addJson("execution_count", count_);
    }
    clients_->replyError(*request, error, count);
    clients_->status(request->message.header, "idle");
}

bool Relay::tell(const std::string& line) {
    const auto cell =
        std::ranges::find_if(requests_, [](const auto& entry) { return isCell(*entry.second); });
    if (cell == requests_.end()) return false;
    clients_->stream(cell->second->message.header, "stderr",
                     connector::json::quoted("numora: " + line + "\n"));
    return true;
}

}  // namespace jupyter
