#include "RemoteSession.h"

#include <chrono>
#include <cstdlib>
#include <functional>
#include <utility>

#include <Poco/JSON/Array.h>
#include <unistd.h>

#include "RemoteStream.h"
#include "ServerRequests.h"
#include "connector/json/parse.h"
#include "connector/json/write.h"
#include "connector/wireWords.h"
#include "interpreterInfo.h"
#include "serverAnswer.h"
#include "terminal.h"

namespace app {

using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace {

constexpr auto patience = std::chrono::seconds(5);
constexpr auto readyLimit = std::chrono::seconds(10);

/// A count that is one higher for as long as this exists.
class Counted {
public:
    explicit Counted(std::atomic<int>& count) : count_(count) { ++count_; }
    ~Counted() { --count_; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    std::atomic<int>& count_;
};

class CountedStream : public RemoteStream {
public:
    CountedStream(const ServerAddress& address, std::atomic<int>& count,
                  std::function<void(RemoteStream*)> setStream)
        : RemoteStream(address), counted_(count), setStream_(std::move(setStream)) {
        setStream_(this);
    }
    ~CountedStream() override { setStream_(nullptr); }
    CountedStream(const CountedStream&) = delete;
    CountedStream& operator=(const CountedStream&) = delete;

private:
    const Counted counted_;
    const std::function<void(RemoteStream*)> setStream_;
};

}  // namespace

RemoteSession::RemoteSession(const ServerAddress& address)
    : address_(address), requests_(address), interrupts_(address) {
    requireReady();
    key_ = std::make_unique<InterruptKey>([this] { interrupt(); });
}

void RemoteSession::requireReady() {
    try {
        valueIn(requests_.get("/readyz", readyLimit));
    } catch (const ServerRefusal&) {
        const auto info = ServerRequests(address_).describe();
        if (textIn(*info, "state") != "failed") throw;
        const auto death = info->getObject("lastDeath");
        throw ServerRefusal((death ? textIn(*death, "sentence") : "The interpreter has died too often.") +
                            " 'numora restart' begins a new life.");
    }
}

std::string RemoteSession::activity() {
    return ServerRequests(address_).describe()->optValue<std::string>("activity", "");
}

StandardStreams RemoteSession::streams() const { return {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}; }

Object::Ptr RemoteSession::request(const std::string& type, const Object::Ptr& message) {
    if (type == connector::wire::type::interrupt) {
        postInterrupt(requests_);
        return new Object;
    }
    const Counted counted(underWay_);
    const std::string wanted = std::exchange(wantedLife_, {});
    const auto answer = requests_.post("/" + type, connector::json::written(message), std::nullopt, wanted);
    wasDropped_ = answer.isDropped;
    try {
        if (!wanted.empty()) requireSameLife(answer);
        const auto response = objectFrom(answer);
        noteLife(answer.life);
        return response;
    } catch (const InterpreterDied&) {
        life_.clear();
        throw;
    }
}

// Between two requests it may have been ended by others, or by threads of its own.
void RemoteSession::noteLife(const std::string& life) {
    if (life.empty()) return;
    if (!life_.empty() && life != life_) printError(streams().error, startedAnew);
    life_ = life;
}

// Responses say no more than the type. The one prompt that is left by code that did not run is that of an
// open block, and whether code ends inside one can be asked for; the newline makes it a question of this
// alone.
nmutil::prompt::InputRequester RemoteSession::promptAfter(const std::string& code) {
    Array::Ptr arguments = new Array;
    arguments->add(code + "\n");
    Object::Ptr message = new Object;
    message->set("function", "numora.is_complete");
    message->set("nargout", 1);
    message->set("arguments", arguments);
    message->set("dequeMode", "ppe");
    const auto results = connector::json::parse(
        request(connector::wire::type::feval, message)->optValue<std::string>("results", "[]"));
    const auto status =
        results.type() == typeid(Array::Ptr) ? results.extract<Array::Ptr>()->getObject(0) : Object::Ptr();
    const bool isOpen = status && status->optValue<std::string>("status", "") != "complete";
    return isOpen ? nmutil::prompt::INCOMPLETE_BLOCK_PROMPT : nmutil::prompt::PAUSE_PROMPT;
}

std::unique_ptr<ResponseStream> RemoteSession::openStream() {
    return std::make_unique<CountedStream>(address_, underWay_, [this](RemoteStream* stream) {
        const connector::MutexLock lock(mutex_);
        stream_ = stream;
    });
}

// Over the stream's own session: what that has sent and has not begun is not to run after the interrupt.
void RemoteSession::postInterrupt(HttpClient& http) {
    std::string message;
    {
        const connector::MutexLock lock(mutex_);
        if (stream_ != nullptr) message = stream_->interruptMessage();
    }
    if (!message.empty()) {
        const Var replies = valueIn(http.post("/cometd", message, patience));
        const auto reply = replies.type() == typeid(Array::Ptr) ? replies.extract<Array::Ptr>()->getObject(0)
                                                                : Object::Ptr();
        if (reply && reply->optValue("successful", false)) return;
    }
    valueIn(http.post(std::string("/") + connector::wire::type::interrupt, "{}", patience));
}

void RemoteSession::interrupt() {
    if (underWay_ == 0) return;
    ++pressed_;
    try {
        postInterrupt(interrupts_);
    } catch (const InterpreterDied&) {
        // What was interrupted says so.
    } catch (const ServerRefusal& error) {
        printError(STDERR_FILENO, std::string("the code could not be interrupted: ") + error.what());
    } catch (const std::exception& error) {
        printError(STDERR_FILENO, error.what());
        std::_Exit(1);
    }
}

}  // namespace app
