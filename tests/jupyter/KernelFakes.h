#pragma once

#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "jupyter/Executor.h"
#include "jupyter/Interpreter.h"
#include "jupyter/Kernel.h"
#include "jupyter/wire/rawMembers.h"

namespace fake {

/// Runs tasks when a test says so; the time is the test's.
class FakeExecutor : public jupyter::Executor {
public:
    void post(std::function<void()> task) override { posted_.push_back(std::move(task)); }
    void postAfter(std::chrono::milliseconds time, std::function<void()> task) override {
        timed_.emplace(now_ + time, std::move(task));
    }

    void run() {
        while (!posted_.empty()) {
            const auto task = std::move(posted_.front());
            posted_.pop_front();
            task();
        }
    }
    void advance(std::chrono::milliseconds time) {
        now_ += time;
        while (!timed_.empty() && timed_.begin()->first <= now_)
            post(timed_.extract(timed_.begin()).mapped());
        run();
    }

private:
    std::deque<std::function<void()>> posted_;
    std::chrono::milliseconds now_{0};
    std::multimap<std::chrono::milliseconds, std::function<void()>> timed_;
};

/// Writes down what it is asked for; a test answers.
class FakeInterpreter : public jupyter::Interpreter {
public:
    explicit FakeInterpreter(std::string& transcript) : transcript_(transcript) {}

    void stream(const Code& code, Refused refused) override {
        transcript_ += code.prompt == 0 ? "run" : "type " + std::to_string(code.prompt);
        for (const auto& capability : code.capabilities) transcript_ += ' ' + capability;
        transcript_ += ": " + code.text + '\n';
        if (code.prompt == 0) running = code.request;
        refusal = std::move(refused);
    }
    void call(const std::string& type, std::string json, Answered answered) override {
        const std::string uuid(jupyter::wire::textIn(json, "uuid"));
        if (!uuid.empty()) running = uuid;
        transcript_ += "call " + type + ' ' + json + '\n';
        answers.push_back(std::move(answered));
    }
    void callInTurn(const std::string& type, std::string json, Answered answered) override {
        call(type, std::move(json), std::move(answered));
    }
    void restart(Answered answered) override { call("restart", "{}", std::move(answered)); }
    void listen(std::function<void(const jupyter::InterpreterEvent&)> received,
                std::function<bool()>) override {
        this->received = std::move(received);
    }
    void resume() override {}

    std::string running;  ///< the name of what runs
    Refused refusal;
    std::deque<Answered> answers;
    std::function<void(const jupyter::InterpreterEvent&)> received;

private:
    std::string& transcript_;
};

/// Writes down what is sent: statuses as "busy ^PARENT", what goes to one client with its route.
class FakeOutlet : public jupyter::Outlet {
public:
    explicit FakeOutlet(std::string& transcript) : transcript_(transcript) {}

    void send(jupyter::Message message) override {
        using jupyter::wire::textIn;
        const std::string type(textIn(message.header, "msg_type"));
        if (type == "input_request") question = textIn(message.header, "msg_id");
        transcript_ += type == "status" ? std::string(textIn(message.content, "execution_state"))
                                        : type + ' ' + message.content;
        for (const auto& buffer : message.buffers) transcript_ += " +" + buffer;
        transcript_ += " ^" + std::string(textIn(message.parent, "msg_id"));
        for (const auto& part : message.route) transcript_ += " @" + part;
        transcript_ += '\n';
        last = std::move(message);
    }

    std::string question;  ///< the "msg_id" of the last input_request
    jupyter::Message last;

private:
    std::string& transcript_;
};

}  // namespace fake
