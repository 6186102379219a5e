#include <limits>
#include <sstream>

#include <gtest/gtest.h>

#include "AsyncEvalServiceFixture.h"
#include "support/LogRecords.h"

namespace connector::interpreter::v1 {
namespace {

using foundation::msg_svc::eventmgr::EventMgr;
using namespace nmutil::prompt;  // the prompt values

class AsyncEvalServiceEventsTest : public AsyncEvalServiceFixture {
protected:
    LogRecords log_{"connector::interpreter::async"};
};

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

TEST_F(AsyncEvalServiceEventsTest, publishesEventsInTheirPlaceBetweenWhatIsPrinted) {
    using nmutil::io::PrintableErrorEvent;
    using numora::lang::correction::SuggestionEvent;
    const PrintableErrorEvent error(u"trace\n", {{}, "NUMORA:id", u"message"}),
        unsupported(u"trace\n", {{}, "NUMORA:connector:FunctionNotSupported", u"not here"});
    const nmutil::io::SinkTextEvent late(u"late", nmutil::io::STANDARD_ERROR);
    EventMgr& events = *host_.events;
    const std::pair<std::function<void()>, std::string> table[] = {
        {[&] { events.raise(nmutil::io::CLCEvent()); }, R"(commandwindow/clear "clear")"},
        {[&] { events.raise(nmutil::io::HomeEvent()); }, R"(commandwindow/home "home")"},
        {[&] { events.raise(SuggestionEvent(u"<\"sqrt\">é")); }, R"(suggest "\u003c\"sqrt\"\u003eé")"},
        {[&] { events.raise(SuggestionEvent(u"quiet", true)); }, ""},
        {[&] { events.raise(nmutil::utils::InputRequestEvent(INPUT_PROMPT)); }, R"(iqminput "INPUT_PROMPT")"},
        {[&] { events.raise(nmutil::utils::IqmInputRequestEvent(BASE_PROMPT)); },
         R"(iqminput "BASE_PROMPT")"},
        {[&] { events.raise(error); }, R"(error "trace\n")"},
        {[&] { events.raise(unsupported); }, R"(error "not here\n")"}};
    service_->startListening();
    messages_->onPublish = [](const std::string& channel) {
        EXPECT_TRUE(fake::FakeHost::isUnlocked()) << channel;  // or who handles it could not need the lock
    };
    Lines expected;
    std::string printed;
    host_.onEvaluate = [&](const std::u16string&) {
        for (const auto& [raise, message] : table) {
            host_.print(u".");
            raise();
            printed += '.';
            if (message.empty()) continue;
            expected.push_back("/eval/response/output \"" + std::exchange(printed, "") + '"');
            expected.push_back("/eval/response/" + message);
        }
        events.raise(late);
        events.raise(error);
        for (const char* body : {R"("late")", R"("trace\n")"})
            expected.push_back(std::string("/eval/response/error ") + body);
    };
    run(R"("x")");
    expected.emplace_back(success);
    EXPECT_EQ(published(), expected);
    EXPECT_EQ(host_.window->text(), u"");
}

TEST_F(AsyncEvalServiceEventsTest, publishesThePromptByItsName) {
    std::istringstream names(
        "NO_PROMPT,BASE_PROMPT,DEBUG_PROMPT,INPUT_PROMPT,KEYBOARD_PROMPT,PAUSE_PROMPT,unknown prompt type!,"
        "KINETRIX_DEBUG_PROMPT,KINETRIX_IN_EDITOR_DEBUG_PROMPT,INCOMPLETE_BLOCK_PROMPT,MORE_PROMPT,"
        "DISCRETIX_DEBUG_PROMPT,ZF_ENL_DEBUG_PROMPT,unknown prompt type!");
    auto value = std::numeric_limits<std::uint32_t>::max();  // and 0 after it
    for (std::string name; std::getline(names, name, ',');) {
        service_->handleInputRequest(nmutil::utils::InputRequestEvent(static_cast<InputRequester>(value++)));
        EXPECT_EQ(published().back(), "/eval/response/iqminput \"" + name + '"');
    }
}

TEST_F(AsyncEvalServiceEventsTest, keepsFailuresOutOfTheEventManager) {
    service_->startListening();
    messages_->onPublish = [](const std::string& channel) {
        if (channel.ends_with("home")) throw 1;
        throw std::runtime_error("closed");
    };
    host_.events->raise(nmutil::io::CLCEvent());
    host_.events->raise(nmutil::io::HomeEvent());
    host_.events->raise(nmutil::utils::InputRequestEvent(INPUT_PROMPT));
    EXPECT_EQ(host_.events->handlerFailures, 0);
    EXPECT_EQ(log_.count("error: Error in handleClc: closed\n"), 1);
    EXPECT_EQ(log_.count("error: Unknown error in handleHome"), 1);
    EXPECT_EQ(log_.count("error: Error in doPromptChange: closed\n"), 1);
}

class TelemetryTest : public AsyncEvalServiceFixture {
protected:
    TelemetryTest() {
        host_.onEvaluate = [this](const std::u16string& code) {
            host_.print(code);
            service_->handleSuggestion(numora::lang::correction::SuggestionEvent(u"sqrt"));
            kept_ = buffer_->getDduxData();
        };
    }
    std::string kept_;  ///< for telemetry, at the end of the code
};

TEST_F(TelemetryTest, recordsARequestAndItsEndWithoutCodeOrOutput) {
    host_.dduxEnabled = true;
    context_->set("clientType", std::string("browser"));
    run(R"("secret")");
    EXPECT_EQ(host_.dduxRecords,
              (Lines{R"(NUMORA_WORKER MCODE_EVAL_REQUEST {"clientType":"browser","product":"NUMORA Online"})",
                     "NUMORA_WORKER MCODE_EVAL_RESPONSE "}));
    EXPECT_EQ(kept_, "secretDid you mean: sqrt ?");
    EXPECT_EQ(buffer_->getDduxData(), "");
}

TEST_F(TelemetryTest, takesEffectAtTheNextRequestAndLeavesTypedInputOut) {
    request(R"("off")");
    host_.dduxEnabled = true;
    host_.distributor->runAll();
    EXPECT_EQ(kept_, "");
    request(R"("on")");
    host_.dduxEnabled = false;
    host_.distributor->runAll();
    EXPECT_TRUE(kept_.starts_with("on"));
    host_.dduxEnabled = true;
    host_.charBufferMode = true;
    run(R"("typed")");
    EXPECT_EQ(host_.dduxRecords.size(), 2U);
}

TEST_F(TelemetryTest, failsNoRequest) {
    host_.onDduxQuery = [] { throw std::runtime_error("no telemetry"); };
    run(R"("x")");
    EXPECT_EQ(published().back(), success);
}

}  // namespace
}  // namespace connector::interpreter::v1
