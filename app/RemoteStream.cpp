#include "RemoteStream.h"

#include <algorithm>
#include <utility>

#include <Poco/JSON/Array.h>

#include "connector/json/write.h"
#include "connector/wireWords.h"
#include "serverAnswer.h"
#include "streamMessage.h"

namespace app {

using namespace std::chrono_literals;
using connector::MutexLock;
using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;
using Clock = std::chrono::steady_clock;

namespace {

constexpr auto requestLimit = 30s;
constexpr auto connectLimit = 45s;  // the server holds a connect for 25 seconds
// The server forgets a client after 20 seconds, and after two the code that waits for it goes on.
constexpr auto signInterval = 1s;
constexpr auto longestBreak = 20s;
constexpr auto shortestDelay = 100ms;
constexpr auto longestDelay = 2s;
constexpr std::size_t queueBytes = std::size_t{8} << 20;

Object::Ptr objectOf(const std::string& name, const Var& value) {
    Object::Ptr object = new Object;
    object->set(name, value);
    return object;
}

bool isSuccessful(const Object& reply) { return reply.optValue("successful", false); }

// The answer to a call, as an interrupt is.
bool isAnswer(const Object& message) {
    return message.optValue<std::string>("channel", "").starts_with("/service/");
}

std::string errorIn(const Object& reply) { return reply.optValue<std::string>("error", "without a reason"); }

std::string arrayOf(const Object::Ptr& message) {
    Array::Ptr all = new Array;
    all->add(message);
    return connector::json::written(all);
}

std::vector<Object::Ptr> messagesIn(const HttpClient::Answer& answer) {
    const Var value = valueIn(answer);
    if (value.type() != typeid(Array::Ptr))
        throw ServerRefusal("the server's answer must be a JSON array of messages");
    std::vector<Object::Ptr> messages;
    for (const Var& element : *value.extract<Array::Ptr>()) {
        if (element.type() == typeid(Object::Ptr)) messages.push_back(element.extract<Object::Ptr>());
    }
    return messages;
}

/// The first of the messages.  Throws: InterpreterDied, ServerRefusal, when it is no success.
Object::Ptr successIn(const std::vector<Object::Ptr>& replies) {
    if (replies.empty()) throw ServerRefusal("the server did not reply");
    if (isSuccessful(*replies[0])) return replies[0];
    if (const auto death = deathIn(*replies[0]); !death.empty()) throw InterpreterDied(death);
    throw ServerRefusal("the server refused the request: " + errorIn(*replies[0]));
}

}  // namespace

RemoteStream::RemoteStream(const ServerAddress& address) : publishes_(address), connects_(address) {
    open(publishes_);
    thread_ = std::thread([this] { run(); });
}

RemoteStream::~RemoteStream() {
    bool isOpen = true;
    {
        const MutexLock lock(mutex_);
        isStopping_ = true;
        isOpen = failure_.empty();
    }
    changed_.notify_all();
    connects_.abort();
    try {
        if (isOpen) exchange(publishes_, newMessage("/meta/disconnect"), 2s);
    } catch (const std::exception&) {
        // The server forgets the client by itself.
    }
    thread_.join();
}

void RemoteStream::send(const StreamRequest& request) {
    Object::Ptr message = newMessage(connector::wire::channel::evalRequest);
    message->set("data", request.text);
    Object::Ptr members = objectOf("request", request.name);
    if (request.prompt) members->set("prompt", *request.prompt);
    message->set("ext", objectOf("connector", members));
    const auto answer = publishes_.post("/cometd", arrayOf(message), std::nullopt, life_);
    if (!life_.empty()) requireSameLife(answer);
    life_ = answer.life;
    const auto replies = messagesIn(answer);
    if (!replies.empty() && errorIn(*replies[0]).ends_with(":the prompt is gone"))
        throw PromptGone(errorIn(*replies[0]));
    successIn(replies);
}

std::string RemoteStream::interruptMessage() {
    const std::string channel = std::string("/service/") + connector::wire::type::interrupt;
    Object::Ptr message = newMessage(channel.c_str());
    message->set("id", std::string("interrupt"));
    message->set("data", Object::Ptr(new Object));
    return connector::json::written(message);
}

ResponseStream::Taken RemoteStream::take(std::chrono::milliseconds limit) {
    Taken taken;
    {
        const auto end = Clock::now() + limit;
        MutexLock lock(mutex_);
        while (messages_.empty() && failure_.empty() &&
               changed_.wait_until(lock.native(), end) == std::cv_status::no_timeout) {
        }
        taken.messages = std::exchange(messages_, {});
        queuedBytes_ = 0;
        if (taken.messages.empty()) taken.failure = failure_;
    }
    changed_.notify_all();
    return taken;
}

RemoteStream::Objects RemoteStream::exchange(HttpClient& http, const Object::Ptr& message,
                                             std::chrono::seconds limit) {
    return messagesIn(http.post("/cometd", arrayOf(message), limit));
}

Object::Ptr RemoteStream::replyTo(HttpClient& http, const Object::Ptr& message) {
    return successIn(exchange(http, message, requestLimit));
}

Object::Ptr RemoteStream::newMessage(const char* channel) {
    Object::Ptr message = objectOf("channel", std::string(channel));
    const MutexLock lock(mutex_);
    if (!clientId_.empty()) message->set("clientId", clientId_);
    return message;
}

void RemoteStream::open(HttpClient& http) {
    Array::Ptr types = new Array;
    types->add(std::string("long-polling"));
    Object::Ptr handshake = objectOf("channel", std::string("/meta/handshake"));
    handshake->set("version", std::string("1.0"));
    handshake->set("supportedConnectionTypes", types);
    handshake->set("ext", objectOf("ack", true));
    const auto replies = exchange(http, handshake, requestLimit);
    if (replies.empty()) throw ServerRefusal("the server did not reply");
    const auto& reply = replies[0];
    if (!isSuccessful(*reply)) {
        const auto advice = objectIn(*reply, "advice");
        const std::string problem = "the server refused the request: " + errorIn(*reply);
        if (advice.isNull() || advice->optValue<std::string>("reconnect", "") == "none")
            throw ServerRefusal(problem);
        throw ConnectionLost(problem, false);  // it takes no more clients now, and may do so later
    }
    const auto extension = extensionOf(*reply);
    const auto server = extension.isNull() ? "" : extension->optValue<std::string>("server", "");
    if (!server_.empty() && server != server_) {
        throw ServerRefusal("the server was started again; the code that ran there is gone");
    }
    server_ = server;
    {
        const MutexLock lock(mutex_);
        clientId_ = reply->optValue<std::string>("clientId", "");
    }
    acknowledged_ = 0;
    Object::Ptr subscribe = newMessage("/meta/subscribe");
    subscribe->set("subscription", std::string(connector::wire::channel::allEvalResponses));
    if (sequence_ > 0) subscribe->set("ext", objectOf("connector", objectOf("after", sequence_)));
    const auto subscribed = replyTo(http, subscribe);
    // Where it begins, for the case that the session ends before any message has come.
    if (sequence_ == 0) sequence_ = std::max<Poco::Int64>(0, numberIn(extensionOf(*subscribed), "seq"));
}

void RemoteStream::run() {
    std::chrono::milliseconds delay = 0ms;
    auto end = Clock::time_point::max();  // of the attempts to get through
    while (pause(delay)) {
        try {
            connect();
            delay = 0ms;
            end = Clock::time_point::max();
        } catch (const ConnectionLost& error) {
            end = std::min(end, Clock::now() + longestBreak);
            if (error.isRefused() || Clock::now() >= end) return fail(error.what());
            delay = std::clamp<std::chrono::milliseconds>(2 * delay, shortestDelay, longestDelay);
        } catch (const std::exception& error) {
            return fail(error.what());
        }
    }
}

void RemoteStream::connect() {
    const bool hasRoom = waitForRoom();
    Object::Ptr message = newMessage("/meta/connect");
    message->set("connectionType", std::string("long-polling"));
    message->set("ext", objectOf("ack", acknowledged_));
    const auto answer = exchange(connects_, message, connectLimit);
    for (const auto& reply : answer) {
        if (reply->optValue<std::string>("channel", "") != "/meta/connect") continue;
        if (!isSuccessful(*reply)) {
            if (!errorIn(*reply).starts_with("402:"))
                throw ServerRefusal("the server refused the request: " + errorIn(*reply));
            return open(connects_);
        }
        // What is not acknowledged comes again.
        if (!hasRoom) return;
        acknowledged_ = std::max(acknowledged_, numberIn(objectIn(*reply, "ext"), "ack"));
    }
    keep(answer);
}

// Without room, the connect that follows is but a sign of life.
bool RemoteStream::waitForRoom() {
    const auto end = Clock::now() + signInterval;
    MutexLock lock(mutex_);
    while (queuedBytes_ >= queueBytes && !isStopping_ &&
           changed_.wait_until(lock.native(), end) == std::cv_status::no_timeout) {
    }
    return queuedBytes_ < queueBytes;
}

void RemoteStream::keep(const Objects& messages) {
    {
        const MutexLock lock(mutex_);
        for (const auto& message : messages) {
            if (!message->has("data") || isAnswer(*message)) continue;
            messages_.push_back(streamMessageFrom(*message, connector::json::written(message)));
            queuedBytes_ += messages_.back().line.size();
            sequence_ = std::max(sequence_, numberIn(extensionOf(*message), "seq"));
        }
    }
    changed_.notify_all();
}

// Whether the stream still exists then.
bool RemoteStream::pause(std::chrono::milliseconds time) {
    const auto end = Clock::now() + time;
    MutexLock lock(mutex_);
    while (!isStopping_ && changed_.wait_until(lock.native(), end) == std::cv_status::no_timeout) {
    }
    return !isStopping_;
}

void RemoteStream::fail(const std::string& why) {
    {
        const MutexLock lock(mutex_);
        failure_ = why;
    }
    changed_.notify_all();
}

}  // namespace app
