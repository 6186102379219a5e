#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "AsyncEvalServiceFixture.h"
#include "cmddistributor/RuntimeException.h"
#include "support/LogRecords.h"

namespace connector::interpreter::v1 {
namespace {

using cmddistributor::RuntimeException;
using foundation::msg_svc::eventmgr::EventMgr;
using namespace nmutil::prompt;  // the prompt values

class AsyncEvalServiceEventsTest : public AsyncEvalServiceFixture {
protected:
    void print(const std::u16string& text) {
        host_.events->raise(nmutil::io::SinkTextEvent(text, nmutil::io::STANDARD_OUTPUT));
    }
};

struct Counting {
    std::string name, calls;  ///< '+' starts, '-' stops
    std::int32_t left;
};

class ListeningTest : public AsyncEvalServiceFixture, public testing::WithParamInterface<Counting> {};

TEST_P(ListeningTest, lastsWhileTheCountIsAboveZero) {
    const LogRecords log("connector::interpreter::async");
    std::int32_t left = 0;
    for (const char call : GetParam().calls) {
        if (call == '-') {
            left = service_->stopListening();
        } else {
            service_->startListening();
            ++left;
        }
    }
    EXPECT_EQ(left, GetParam().left);
    EXPECT_EQ(isListening(), left > 0);
    EXPECT_EQ(host_.events->subscriptionCount<nmutil::io::CLCEvent>(), left > 0 ? 1U : 0U);
    EXPECT_EQ(log.count("info: Starting async eval:") - log.count("info: Stopping async eval"),
              left > 0 ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, ListeningTest,
                         testing::Values(Counting{"None", "", 0}, Counting{"One", "+", 1},
                                         Counting{"TwoAndAStop", "++-", 1},
                                         Counting{"TwoAndTwoStops", "++--", 0},
                                         Counting{"OneStopTooMany", "++---", 0},
                                         Counting{"AStopTooManyIsForgotten", "++---+", 1},
                                         Counting{"StopFirst", "--+", 1}, Counting{"Again", "+-+-+-", 0}),
                         [](const auto& row) { return row.param.name; });

TEST_F(AsyncEvalServiceEventsTest, countsEachChannelOfAClientOnce) {
    messages_->subscribeClient("a", "/eval/response/output");
    messages_->subscribeClient("a", "/eval/response/output");
    messages_->subscribeClient("a", "/eval/response/**");
    messages_->subscribeClient("b", "/eval/response/output");
    messages_->unsubscribeClient("c", "/eval/response/output");  // never subscribed
    messages_->unsubscribeClient("a", "/eval/response/output");
    messages_->unsubscribeClient("a", "/eval/response/output");
    messages_->unsubscribeClient("b", "/eval/response/output");
    EXPECT_TRUE(isListening());
    messages_->unsubscribeClient("a", "/eval/response/**");
    EXPECT_FALSE(isListening());
    EXPECT_EQ(service_->stopListening(), 0);
}

TEST_F(AsyncEvalServiceEventsTest, stopsListeningWhenItEnds) {
    messages_->subscribeClient("a", "/eval/response/output");
    service_->startListening();
    service_.reset();
    EXPECT_FALSE(isListening());
}

TEST_F(AsyncEvalServiceEventsTest, triesAgainWhenItCouldNotListen) {
    host_.hasEventManager = false;
    service_->startListening();
    host_.hasEventManager = true;
    EXPECT_FALSE(isListening());
    service_->startListening();
    EXPECT_TRUE(isListening());
    EXPECT_EQ(service_->stopListening(), 1);
}

TEST_F(AsyncEvalServiceEventsTest, mayStopListeningWhileItHandlesAnEvent) {
    service_->startListening();
    messages_->onPublish = [this](const std::string&) {
        service_->stopListening();
        service_->startListening();
        service_->stopListening();
    };
    host_.events->raise(nmutil::io::HomeEvent());
    host_.events->raise(nmutil::io::HomeEvent());
    EXPECT_EQ(published(), Lines{R"(/eval/response/commandwindow/home "home")"});
    EXPECT_FALSE(isListening());
}

struct Raised {
    std::string name;
    std::function<void(EventMgr&)> raise;
    std::vector<std::string> published;
};

class InterpreterEventTest : public AsyncEvalServiceFixture, public testing::WithParamInterface<Raised> {};

TEST_P(InterpreterEventTest, keepsItsPlaceBetweenWhatIsPrinted) {
    service_->startListening();
    host_.onEvaluate = [this](const std::u16string&) {
        host_.print(u"before");
        GetParam().raise(*host_.events);
        host_.print(u"after");
    };
    run(R"("x")");
    Lines expected = GetParam().published;
    if (!expected.empty()) {
        expected.insert(expected.begin(), R"(/eval/response/output "before")");
        expected.emplace_back(R"(/eval/response/output "after")");
    } else {
        expected.emplace_back(R"(/eval/response/output "beforeafter")");
    }
    expected.emplace_back(success);
    EXPECT_EQ(published(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Events, InterpreterEventTest,
    testing::Values(
        Raised{"Clear",
               [](EventMgr& events) { events.raise(nmutil::io::CLCEvent()); },
               {R"(/eval/response/commandwindow/clear "clear")"}},
        Raised{"Home",
               [](EventMgr& events) { events.raise(nmutil::io::HomeEvent()); },
               {R"(/eval/response/commandwindow/home "home")"}},
        Raised{
            "Suggestion",
            [](EventMgr& events) { events.raise(numora::lang::correction::SuggestionEvent(u"<\"sqrt\">é")); },
            {R"(/eval/response/suggest "\u003c\"sqrt\"\u003eé")"}},
        Raised{
            "QuietSuggestion",
            [](EventMgr& events) { events.raise(numora::lang::correction::SuggestionEvent(u"sqrt", true)); },
            {}},
        Raised{"InputRequest",
               [](EventMgr& events) { events.raise(nmutil::utils::InputRequestEvent(INPUT_PROMPT)); },
               {R"(/eval/response/iqminput "INPUT_PROMPT")"}},
        Raised{"QueueManagersInputRequest",
               [](EventMgr& events) { events.raise(nmutil::utils::IqmInputRequestEvent(BASE_PROMPT)); },
               {R"(/eval/response/iqminput "BASE_PROMPT")"}},
        Raised{"ErrorText",
               [](EventMgr& events) {
                   events.raise(nmutil::io::SinkTextEvent(u"late", nmutil::io::STANDARD_ERROR));
               },
               {R"(/eval/response/error "late")"}},
        Raised{"PrintableError",
               [](EventMgr& events) {
                   events.raise(nmutil::io::PrintableErrorEvent(u"trace\n", {{}, "NUMORA:id", u"message"}));
                   events.raise(nmutil::io::PrintableErrorEvent(u"next\n", {{}, "NUMORA:id", u"message"}));
               },
               {R"(/eval/response/error "trace\n")", R"(/eval/response/error "next\n")"}},
        Raised{"FunctionNotSupported",
               [](EventMgr& events) {
                   events.raise(nmutil::io::PrintableErrorEvent(
                       u"trace\n", {{}, "NUMORA:connector:FunctionNotSupported", u"not here"}));
               },
               {R"(/eval/response/error "not here\n")"}}),
    [](const auto& row) { return row.param.name; });

TEST_F(AsyncEvalServiceEventsTest, publishesThePromptByItsName) {
    const std::vector<std::pair<std::uint32_t, std::string>> names = {
        {std::numeric_limits<std::uint32_t>::max(), "NO_PROMPT"},
        {0, "BASE_PROMPT"},
        {1, "DEBUG_PROMPT"},
        {2, "INPUT_PROMPT"},
        {3, "KEYBOARD_PROMPT"},
        {4, "PAUSE_PROMPT"},
        {5, "unknown prompt type!"},
        {6, "KINETRIX_DEBUG_PROMPT"},
        {7, "KINETRIX_IN_EDITOR_DEBUG_PROMPT"},
        {8, "INCOMPLETE_BLOCK_PROMPT"},
        {9, "MORE_PROMPT"},
        {10, "DISCRETIX_DEBUG_PROMPT"},
        {11, "ZF_ENL_DEBUG_PROMPT"},
        {12, "unknown prompt type!"},
    };
    Lines expected;
    for (const auto& [value, name] : names) {
        service_->handleInputRequest(nmutil::utils::InputRequestEvent(static_cast<InputRequester>(value)));
        expected.push_back("/eval/response/iqminput \"" + name + '"');
    }
    EXPECT_EQ(published(), expected);
}

TEST_F(AsyncEvalServiceEventsTest, publishesTheErrorOfItsOwnCodeAsABatchOfItsOwn) {
    const LogRecords log("connector::interpreter::async");
    service_->startListening();
    host_.onEvaluate = [this](const std::u16string&) {
        host_.print(u"out");
        host_.print(u"warning", true);
        throw RuntimeException(nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:id", u"m", u"trace");
    };
    run(R"("x")");
    EXPECT_EQ(published(), (Lines{R"(/eval/response/output "out")", R"(/eval/response/error "warning")",
                                  R"(/eval/response/error "trace")", failure}));
    EXPECT_TRUE(
        log.has("debug: Async sendEvalRequest PrintableErrorEvent triggered: id:NUMORA:id, text:trace"));
}

TEST_F(AsyncEvalServiceEventsTest, keepsFailuresOutOfTheEventManager) {
    const LogRecords log("connector::interpreter::async");
    service_->startListening();
    messages_->onPublish = [](const std::string& channel) {
        if (channel.ends_with("home")) throw 1;
        throw std::runtime_error("closed");
    };
    print(u"text");
    host_.events->raise(nmutil::io::CLCEvent());
    host_.events->raise(nmutil::io::HomeEvent());
    host_.events->raise(nmutil::utils::InputRequestEvent(INPUT_PROMPT));
    host_.events->raise(numora::lang::correction::SuggestionEvent(u"x"));
    EXPECT_EQ(host_.events->handlerFailures, 0);
    EXPECT_TRUE(log.has("error: Error in handleClc: closed\n"));
    EXPECT_TRUE(log.has("error: Unknown error in handleHome"));
    EXPECT_TRUE(log.has("error: Error in doPromptChange: closed\n"));
}

class TelemetryTest : public AsyncEvalServiceFixture {
protected:
    TelemetryTest() {
        host_.onEvaluate = [this](const std::u16string& code) {
            host_.print(code);
            kept_ = buffer_->getDduxData();
        };
    }
    std::string kept_;  ///< for telemetry, at the end of the code
    const std::string response_ = "NUMORA_WORKER MCODE_EVAL_RESPONSE ";
};

TEST_F(TelemetryTest, recordsARequestAndItsEndWithoutCodeOrOutput) {
    host_.dduxEnabled = true;
    context_->set("clientType", std::string("browser"));
    request(R"("secret")");
    const std::string request =
        R"(NUMORA_WORKER MCODE_EVAL_REQUEST {"clientType":"browser","product":"NUMORA Online"})";
    EXPECT_EQ(host_.dduxRecords(), Lines{request});
    host_.distributor->runAll();
    EXPECT_EQ(host_.dduxRecords(), (Lines{request, response_}));
    EXPECT_EQ(kept_, "secret");
    EXPECT_EQ(buffer_->getDduxData(), "");
}

TEST_F(TelemetryTest, takesEffectAtTheNextRequest) {
    run(R"("off")");
    EXPECT_EQ(kept_, "");
    EXPECT_EQ(host_.dduxRecords(), Lines{});
    request(R"("still off")");
    host_.dduxEnabled = true;
    host_.distributor->runAll();
    EXPECT_EQ(kept_, "");
    EXPECT_EQ(host_.dduxRecords(), Lines{});
    request(R"("on")");
    host_.dduxEnabled = false;
    host_.distributor->runAll();
    EXPECT_EQ(kept_, "on");
    EXPECT_EQ(host_.dduxRecords().size(), 2U);
    run(R"("off")");
    EXPECT_EQ(host_.dduxRecords().size(), 2U);
}

TEST_F(TelemetryTest, keepsSuggestions) {
    host_.dduxEnabled = true;
    host_.onEvaluate = [this](const std::u16string&) {
        service_->handleSuggestion(numora::lang::correction::SuggestionEvent(u"sqrt"));
        kept_ = buffer_->getDduxData();
    };
    run(R"("x")");
    EXPECT_EQ(kept_, "Did you mean: sqrt ?");
}

TEST_F(TelemetryTest, leavesTypedInputOut) {
    host_.dduxEnabled = true;
    request(R"("x")");
    host_.charBufferMode = true;
    request(R"("typed")");
    host_.distributor->runNext(cmddistributor::WhenToDequeue::Prompt);
    EXPECT_EQ(host_.dduxRecords().size(), 1U);
    host_.distributor->runAll();
    EXPECT_EQ(host_.dduxRecords().size(), 2U);
}

TEST_F(TelemetryTest, failsNoRequest) {
    host_.onDduxQuery = [] { throw std::runtime_error("no telemetry"); };
    run(R"("x")");
    EXPECT_EQ(published(), (Lines{R"(/eval/response/output "x")", success}));
}

}  // namespace
}  // namespace connector::interpreter::v1
