#include <optional>

#include <gmock/gmock.h>

#include "KernelFakes.h"
#include "connector/wireWords.h"
#include "jupyter/SessionInterpreter.h"

namespace {

using connector::common::ContextState;
using connector::common::RequestOrigin;
using jupyter::SessionInterpreter;
using testing::ElementsAre;
using testing::IsEmpty;

class SessionInterpreterTest : public testing::Test {
protected:
    SessionInterpreterTest() {
        interpreter_.emplace(
            SessionInterpreter::Ways{.messages = messages_,
                                     .names = std::make_shared<connector::common::RequestNames>(),
                                     .submit = [this](const auto&, const auto&, const auto&,
                                                      auto answered) { answered_ = answered; },
                                     .stream =
                                         [this](auto& session, const auto& channel, const auto& json,
                                                const auto& context, const auto& taken) {
                                             context_ = context;
                                             session_ = &session;
                                             session.publish(channel, json, context);
                                             taken(refusal_);
                                         },
                                     .restart = [this](auto answered) { restarted_ = answered; }},
            executor_);
        interpreter_->listen(
            [this](const jupyter::InterpreterEvent& event) {
                told_.push_back(std::string(event.channel) + ' ' + std::string(event.data) + ' ' +
                                std::string(event.request) + std::string(event.death));
            },
            [this] { return hasRoom_; });
    }
    void publish(const std::string& channel, const std::string& data, RequestOrigin origin = {}) {
        const auto context = std::make_shared<ContextState>();
        RequestOrigin::set(*context, std::move(origin));
        const connector::common::CurrentContext current(context);
        messages_->publish(channel, connector::common::DataBuffer(data));
    }
    auto note(const std::string& what) {
        return [this, what](int status, const std::string& text) {
            told_.push_back(what + ' ' + std::to_string(status) + ' ' + text);
        };
    }

    const std::shared_ptr<messages::LocalMessageService> messages_ =
        std::make_shared<messages::LocalMessageService>();
    fake::FakeExecutor executor_;
    bool hasRoom_ = true;
    std::vector<std::string> told_;
    std::function<void(dispatch::Answer)> answered_, restarted_;
    std::shared_ptr<ContextState> context_;
    connector::common::RequestRefusal refusal_;
    messages::ClientSession* session_ = nullptr;
    std::optional<SessionInterpreter> interpreter_;
};

TEST_F(SessionInterpreterTest, hasCodeWaitWhileThereIsNoRoom) {
    interpreter_->stream({.request = "r", .text = "1", .capabilities = {"display"}}, note("refused"));
    const auto origin = RequestOrigin::of(*context_);
    EXPECT_EQ(context_->getOr(RequestOrigin::forPrompt, std::uint64_t{9}), 0U);
    hasRoom_ = false;
    const std::string text = '"' + std::string(50'000, 'a') + '"';
    for (int i = 0; i < 60; ++i) publish("/eval/response/output", text, *origin);
    executor_.run();
    EXPECT_THAT(told_, IsEmpty());
    EXPECT_TRUE(origin->pace->isBehind());
    hasRoom_ = true;
    interpreter_->resume();
    executor_.run();
    EXPECT_EQ(told_.size(), 60U);
    EXPECT_EQ(told_.back(), "/eval/response/output " + text + " r");
    EXPECT_FALSE(origin->pace->isBehind());
}

TEST_F(SessionInterpreterTest, answersInTurnComeAfterWhatTheyHaveCaused) {
    interpreter_->call("t", "{}", note("soon"));
    const auto soon = answered_;
    interpreter_->callInTurn("t", "{}", note("in turn"));
    publish("/eventmgr/0/comm", "{}", {.request = "c", .prompt = 3, .echo = false, .death = R"({"life":1})"});
    answered_({.status = 200, .json = "{\"a\":\"\\n\"}"});
    soon({.status = 502, .json = "{}", .problem = "it has died"});
    refusal_ = {409, "the prompt is gone"};
    interpreter_->stream({.request = "r", .text = "1"}, note("refused"));
    EXPECT_THAT(told_, IsEmpty());
    executor_.run();
    EXPECT_THAT(told_, ElementsAre(R"(/eventmgr/0/comm {} c{"life":1})", "in turn 200 {\"a\":\"\\n\"}",
                                   "soon 502 it has died", "refused 409 the prompt is gone"));
}

TEST_F(SessionInterpreterTest, tellsOfARestartAfterWhatTheProcessHasLeft) {
    interpreter_->restart(note("restarted"));
    publish("/eval/response/output", "1");
    restarted_({.status = 200, .json = "{}"});
    executor_.run();
    EXPECT_THAT(told_, ElementsAre("/eval/response/output 1 ", "restarted 200 {}"));
}

TEST_F(SessionInterpreterTest, answersWhatIsUnderWayWhenItsSessionIsClosedAndGoesOnWithAnother) {
    for (const auto* name : {"done", "r"}) interpreter_->stream({.request = name, .text = "1"}, note(name));
    publish("/eval/response/completion", "1", {.request = "done"});
    interpreter_->callInTurn("t", "{}", note("in turn"));
    session_->close("full");
    executor_.run();
    answered_({.status = 200, .json = "late"});
    publish("/connector/interpreter", "{}");
    executor_.run();
    const std::string reason = " 503 What comes of it cannot be told, but it may still run: full.";
    EXPECT_THAT(told_, ElementsAre("/eval/response/completion 1 done", "in turn" + reason, "r" + reason,
                                   "/connector/interpreter {} "));
}

TEST_F(SessionInterpreterTest, tellsNothingAfterItsEnd) {
    interpreter_->call("t", "{}", note("soon"));
    publish("/connector/interpreter", "{}");
    interpreter_.reset();
    answered_({});
    publish("/connector/interpreter", "{}");
    executor_.run();
    EXPECT_THAT(told_, IsEmpty());
}

}  // namespace
