#include "jupyter/KernelRoom.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "connector/wireWords.h"
#include "jupyter/wire/rawMembers.h"
#include "log.h"

namespace gateway::jupyter {

using ::jupyter::Message;
using ::jupyter::SessionInterpreter;
using ::jupyter::wire::textIn;

namespace {

constexpr auto sweepTime = std::chrono::seconds(30);
constexpr auto awayTime = std::chrono::minutes(10);
constexpr std::size_t mostAway = 64;
constexpr std::uint16_t goingAway = 1001;
constexpr std::uint16_t internalError = 1011;

/// Answers 503 when nobody else has until its end.
class Once {
public:
    explicit Once(KernelRoom::Answered answered) : answered_(std::move(answered)) {}
    ~Once() { answer(503, "The interpreter is stopping."); }
    Once(const Once&) = delete;
    Once& operator=(const Once&) = delete;

    void answer(int status, const std::string& reason) {
        if (answered_) std::exchange(answered_, nullptr)(status, reason);
    }

private:
    KernelRoom::Answered answered_;
};

std::string_view textOr(const std::string& json, std::string_view name) {
    try {
        return textIn(json, name);
    } catch (const std::invalid_argument&) {
        return {};
    }
}

}  // namespace

KernelRoom::KernelRoom(boost::asio::io_context& context, ports::InterpreterPort& port, Options options)
    : executor_(context), port_(port), options_(std::move(options)) {}

KernelRoom::~KernelRoom() = default;

void KernelRoom::post(std::function<void(KernelRoom&)> action) {
    executor_.post([self = shared_from_this(), action = std::move(action)] { action(*self); });
}

void KernelRoom::begin() {
    auto& port = port_;
    interpreter_ = std::make_unique<SessionInterpreter>(
        SessionInterpreter::Ways{
            .messages = options_.messages,
            .names = port.names(),
            .submit = [&port](const auto& type, auto json, auto context,
                              auto answered) { port.submit(type, json, context, std::move(answered)); },
            .stream = [&port](auto& session, const auto& channel, const auto& json, const auto& context,
                              const auto& taken) { port.stream(session, channel, json, context, taken); },
            .restart =
                [this, &port](auto answered) {
                    if (mayRestart_) return port.restart(false, std::nullopt, std::move(answered));
                    answered(dispatch::errorAnswer(403, "This token may not restart the interpreter."));
                }},
        executor_);
    // A shutdown by message ends nothing: the paths for that know who may.
    kernel_ = std::make_unique<::jupyter::Kernel>(executor_, *interpreter_, *this,
                                                  ::jupyter::KernelOptions{.isShared = true, .shutDown = {}});
}

void KernelRoom::end() {
    kernel_.reset();
    interpreter_.reset();
    state_ = "idle";
}

KernelClient* KernelRoom::clientOf(const KernelSocket& socket) {
    const auto found = clients_.find(socket.peer().session);
    return found == clients_.end() ? nullptr : &found->second;
}

void KernelRoom::join(const SocketPtr& socket) {
    if (isStopped_) return socket->close(goingAway);
    try {
        if (!kernel_) begin();
    } catch (const std::exception& error) {
        log().error("A kernel for notebooks cannot be made: " + std::string(error.what()));
        end();
        return socket->close(internalError);
    }
    auto& client = clients_[socket->peer().session];
    if (client.isAway()) ++connections_;
    lastActivity_ = std::chrono::system_clock::now();
    client.attach(socket);
}

void KernelRoom::leave(const KernelSocket& socket) {
    auto* const client = clientOf(socket);
    if (!client || !client->detach(socket)) return;
    --connections_;
    if (!socket.peer().comesBack) clients_.erase(socket.peer().session);
    if (clients_.size() - connections_ > mostAway) forgetOldest();
    left_ = KernelClient::Clock::now();
    armSweep();
    kernel_->resume();  // nobody may be waited for any more
}

void KernelRoom::receive(const KernelSocket& socket, Message message) {
    auto* const client = clientOf(socket);
    if (!client || !kernel_) return;
    client->noteSession(textOr(message.header, "session"));
    message.route = {socket.peer().session};
    mayRestart_ = socket.peer().mayRestart;
    // Where it may not restart, it is obeyed as any shutdown of what others use, too.
    if (!mayRestart_ && textOr(message.header, "msg_type") == "shutdown_request")
        message.content = "{\"restart\":false}";
    kernel_->receive(std::move(message));
    mayRestart_ = false;
    lastActivity_ = std::chrono::system_clock::now();
}

void KernelRoom::goOn(const KernelSocket& socket) {
    auto* const client = clientOf(socket);
    if (!client) return;
    client->pump();
    if (isWatching_ && client->hasSession(owner_)) kernel_->resume();
}

void KernelRoom::interrupt() {
    if (kernel_) return kernel_->interrupt();
    port_.submit(connector::wire::type::interrupt, std::make_shared<const std::string>("{}"),
                 std::make_shared<connector::common::ContextState>(), [](const auto&) {});
}

void KernelRoom::restart(Answered answered) {
    if (!kernel_) {
        return port_.restart(false, std::nullopt, [answered = std::move(answered)](const auto& answer) {
            answered(answer.status, answer.problem);
        });
    }
    mayRestart_ = true;
    kernel_->restart([once = std::make_shared<Once>(std::move(answered))](
                         int status, const std::string& reason) { once->answer(status, reason); });
    mayRestart_ = false;
}

void KernelRoom::stop() {
    isStopped_ = true;
    for (auto& [session, client] : clients_) client.close(goingAway);
    clients_.clear();
    connections_ = 0;
    end();
}

void KernelRoom::send(Message message) {
    if (kernel_) state_ = kernel_->executionState();
    lastActivity_ = std::chrono::system_clock::now();
    if (message.channel == ::jupyter::Channel::Iopub) {
        noteOwner(message);
        const auto shared = std::make_shared<OutgoingMessage>(std::move(message));
        for (auto& [session, client] : clients_) client.push(shared);
        return watchOwner();
    }
    const auto found = message.route.empty() ? clients_.end() : clients_.find(message.route.front());
    if (found != clients_.end()) found->second.push(std::make_shared<OutgoingMessage>(std::move(message)));
}

void KernelRoom::noteOwner(const Message& message) {
    if (message.parent == parent_) return;
    parent_ = message.parent;
    owner_ = textOr(parent_, "session");
}

// Code waits for its own client; others lose text when they are slow.
bool KernelRoom::hasRoom() const {
    return owner_.empty() || std::ranges::none_of(clients_, [&](const auto& client) {
               return client.second.hasSession(owner_) && client.second.isWaitedFor(options_.ownerWait);
           });
}

// The end of a client's patience is not told by its socket.
void KernelRoom::watchOwner() {
    if (hasRoom() || std::exchange(isWatching_, true)) return;
    executor_.postAfter(options_.ownerWait / 4, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        self->isWatching_ = false;
        if (self->kernel_ && self->hasRoom()) self->kernel_->resume();
        self->watchOwner();
    });
}

void KernelRoom::armSweep() {
    if (std::exchange(isSweeping_, true)) return;
    executor_.postAfter(sweepTime, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->sweep();
    });
}

void KernelRoom::sweep() {
    isSweeping_ = false;
    const auto now = KernelClient::Clock::now();
    std::erase_if(clients_, [&](const auto& client) {
        return client.second.isAway() && now - client.second.awaySince() > awayTime;
    });
    if (clients_.empty() && std::string_view(state_) != "busy" && now - left_ > awayTime) return end();
    if (clients_.size() > connections_ || clients_.empty()) armSweep();
}

void KernelRoom::forgetOldest() {
    const auto since = [](const auto& client) {
        return client.second.isAway() ? client.second.awaySince() : KernelClient::Clock::time_point::max();
    };
    clients_.erase(std::ranges::min_element(clients_, {}, since));
}

}  // namespace gateway::jupyter
