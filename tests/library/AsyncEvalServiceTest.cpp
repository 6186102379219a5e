#include <functional>

#include <gmock/gmock.h>

#include "AsyncEvalServiceFixture.h"
#include "cmddistributor/RuntimeException.h"
#include "connector/common/ClientRequests.h"
#include "connector/common/RequestOrigin.h"
#include "support/LogRecords.h"
#include "support/threads.h"

namespace connector::interpreter::v1 {
namespace {

using cmddistributor::RuntimeException;
using common::ClientRequests;

class AsyncEvalServiceTest : public AsyncEvalServiceFixture {};

TEST_F(AsyncEvalServiceTest, runsCodeAtTheBasePromptWithWhatItsContextSays) {
    const auto handle = nextHandle();
    context_->set("clientType", std::string("browser"));
    context_->set("numoraCapabilities", capabilities::CapabilityList{"figures"});
    host_.onEvaluate = [this, handle](const std::u16string&) {
        EXPECT_TRUE(context_->getOr("streamingEval", false));
        EXPECT_EQ(zvm_common::findContextState(handle), context_);
        EXPECT_EQ(services::io::CmdWinSinkHandle::activeSink(false), host_.window);  // nothing captures
    };
    run(R"("x")");
    const auto options = host_.distributor->enqueued().at(0).options;
    EXPECT_EQ(options.whenToDequeue(), cmddistributor::WhenToDequeue::Default);
    EXPECT_EQ(*options.capabilities(), capabilities::CapabilityList{"figures"});
    EXPECT_EQ(options.source().value_or(u""), u"browser");
    EXPECT_EQ(options.contextHandle(), handle);
    EXPECT_EQ(zvm_common::findContextState(handle), nullptr);
    EXPECT_EQ(host_.calls, (std::vector<std::string>{"evalEnd", "interests"}));
    EXPECT_TRUE(host_.interruptEnabled);
}

TEST_F(AsyncEvalServiceTest, evaluatesNothingWithoutAnOpenGate) {
    gate_->open = false;
    const auto handle = nextHandle();
    context_->set("clientType", std::string("web"));
    run(R"("x")");
    gate_ = nullptr;
    service_ = create();
    run(R"("x")");
    EXPECT_EQ(published(), Lines{});
    EXPECT_TRUE(host_.distributor->enqueued().empty());
    EXPECT_EQ(zvm_common::removeContextState(handle), nullptr);
    EXPECT_EQ(tracker_->calls, (Lines{"start web", "end web", "start web", "end web"}));
}

TEST_F(AsyncEvalServiceTest, logsAMalformedRequestAndKeepsTheSubscription) {
    const LogRecords log("connector::interpreter::async");
    const auto handle = nextHandle();
    context_->set("clientType", std::string("web"));
    int count = 0;
    for (const char* body : {"", "1", R"("x","y")"}) {
        run(body);
        EXPECT_EQ(log.count("debug: Unknown issue in AsyncEvalService::handleEvalRequest"), ++count) << body;
        EXPECT_EQ(std::ssize(tracker_->calls), 2 * count) << body;
    }
    EXPECT_EQ(zvm_common::removeContextState(handle), nullptr);
    EXPECT_TRUE(host_.distributor->enqueued().empty());
    run(R"("next")");
    EXPECT_EQ(published(), Lines{success});
}

TEST_F(AsyncEvalServiceTest, completesARequestThatFailsOnceAsAFailure) {
    const auto queueIsFull = [this] {
        host_.charBufferMode = false;
        host_.distributor->refusal = {nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:id", u"message"};
    };
    const auto isTakenBack = [this] {
        host_.distributor->cancel(host_.distributor->enqueued().at(0).id, false);
    };
    const auto isTyped = [this] { host_.charBufferMode = true; };
    const auto promptGoes = [this] { host_.charBufferMode = false; };
    const auto typesTooMuch = [this] {
        host_.charBufferMode = true;
        host_.onType = [](char16_t) { throw std::length_error("too much"); };
    };
    const std::function<void()> nothing = [] {};
    const std::pair<std::function<void()>, std::function<void()>> beforeAndAfter[] = {
        {nothing, isTakenBack}, {isTyped, promptGoes}, {typesTooMuch, nothing}, {queueIsFull, nothing}};
    context_->set("clientType", std::string("web"));
    for (const auto& [before, after] : beforeAndAfter) {
        const auto count = published().size() + 1;
        const auto handle = nextHandle();
        before();
        request(R"("x")");
        after();
        host_.distributor->runAll();
        EXPECT_EQ(published(), Lines(count, failure));
        EXPECT_EQ(tracker_->calls.size(), 2 * count);
        EXPECT_EQ(zvm_common::removeContextState(handle), nullptr);
    }
}

TEST_F(AsyncEvalServiceTest, failsRequestsWithoutAnInterpreterOrItsFiles) {
    shadow_ = std::make_shared<ManualShadow>();
    shadow_->ready = false;
    service_ = create();
    run(R"("x")");
    shadow_->ready = true;
    run(R"("x")");
    service_ = AsyncEvalService::create({nullptr, messages_, nullptr, gate_, nullptr}, buffer_);
    run(R"("x")");
    host_.charBufferMode = true;
    run(R"("x")");
    EXPECT_EQ(published(), (Lines{failure, success, failure, failure}));
}

TEST_F(AsyncEvalServiceTest, requestsThatTheirClientTakesBackFailUnlessTheyHaveBegun) {
    const auto ofClient = std::make_shared<ClientRequests>();
    context_->set(ClientRequests::contextKey, ofClient);
    host_.onEvaluate = [&](const std::u16string&) {
        request(R"("waits")");
        EXPECT_EQ(ofClient->count(), 2U);
        ofClient->withdraw();
        EXPECT_EQ(ofClient->count(), 1U);
        EXPECT_EQ(published(), Lines{failure});
    };
    run(R"("runs")");
    EXPECT_EQ(published(), (Lines{failure, success}));
    EXPECT_EQ(ofClient->count(), 0U);
}

TEST_F(AsyncEvalServiceTest, typesWhileTheInterpreterReadsCharacters) {
    const LogRecords log("connector::interpreter::async");
    host_.charBufferMode = true;
    request(R"("Ada\n")");
    EXPECT_EQ(host_.distributor->enqueued().at(0).options.whenToDequeue(),
              cmddistributor::WhenToDequeue::Prompt);
    EXPECT_EQ(published(), Lines{});
    host_.distributor->runAll();
    EXPECT_EQ(host_.typed, u"Ada\n");
    EXPECT_EQ(published(), Lines{success});
    EXPECT_THAT(log.lines(), testing::IsSupersetOf(
                                 {R"(debug: Eval request: "Ada\n")",
                                  "debug: Typing chars into type ahead:Ada\n", "debug: Posting key typing:",
                                  R"(debug: Publishing: /eval/response/completion: "Done: success")"}));
}

TEST_F(AsyncEvalServiceTest, takesOneLineForAPromptThatIsNamed) {
    host_.charBufferMode = true;
    const auto isTaken = [this](std::uint64_t prompt, const char* text) {
        context_ = std::make_shared<common::ContextState>();
        context_->set(common::RequestOrigin::forPrompt, prompt);
        request(text);
        return !context_->has(common::RequestRefusal::contextKey);
    };
    host_.question = 7;
    EXPECT_TRUE(isTaken(7, R"("A")"));
    EXPECT_TRUE(isTaken(7, R"("da\n")"));
    EXPECT_FALSE(isTaken(7, R"("Bob\n")"));
    host_.question = 8;
    EXPECT_TRUE(isTaken(8, R"("Eve\n")"));
}

TEST_F(AsyncEvalServiceTest, swallowsWhatIsPrintedForARequestThatHasEnded) {
    std::shared_ptr<nmutil::io::UnicodeStreamBuf> stream;
    host_.onEvaluate = [&](const std::u16string&) {
        stream = host_.distributor->runningRequest()->getErrorSink()->getUnicodeOutStreamBuffer();
    };
    run(R"("x")");
    EXPECT_EQ(stream->sputn(u"late", 4), 4);
    service_->flush();
    EXPECT_EQ(published(), Lines{success});
}

TEST_F(AsyncEvalServiceTest, leavesItsRequestsToEndByThemselves) {
    service_->startListening();
    host_.onEvaluate = [this](const std::u16string&) {
        host_.print(u"before");
        const std::weak_ptr<CoalescingTextBuffer> buffer = std::exchange(buffer_, nullptr);
        service_.reset();
        host_.print(u"after");
        EXPECT_FALSE(buffer.expired());
        buffer.lock()->flush();
        throw RuntimeException(nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:id", u"m", u"text");
    };
    const auto handle = nextHandle();
    context_->set("clientType", std::string("web"));
    run(R"("x")");
    EXPECT_EQ(published(), Lines{});
    EXPECT_FALSE(isListening());
    EXPECT_EQ(tracker_->calls.size(), 2U);
    EXPECT_EQ(zvm_common::removeContextState(handle), nullptr);
    EXPECT_EQ(messages_->subscriptions("/eval/request") + messages_->subscriptions("/eval/response/**"), 0U);
}

TEST_F(AsyncEvalServiceTest, endsARequestWhoseMessagesCannotBePublished) {
    context_->set("clientType", std::string("web"));
    host_.onEvaluate = [this](const std::u16string&) { host_.print(u"lost"); };
    messages_->onPublish = [](const std::string&) { throw std::runtime_error("closed"); };
    run(R"("x")");
    EXPECT_EQ(tracker_->calls.back(), "end web");
}

TEST_F(AsyncEvalServiceTest, waitsForItsMessageServiceWithoutBlocking) {
    using Creation = Promise<std::shared_ptr<message_service::MessageService>>;
    service_.reset();
    messages_->creation = std::make_unique<Creation>();
    const auto none = create();
    messages_->creation->setException(std::make_exception_ptr(std::runtime_error("none")));
    messages_->creation = std::make_unique<Creation>();
    service_ = create();
    service_->startListening();
    host_.events->raise(nmutil::io::HomeEvent());  // nobody can be told
    EXPECT_EQ(messages_->subscriptions("/eval/request"), 0U);
    messages_->creation->setValue(messages_);
    run(R"("x")");
    EXPECT_EQ(published(), Lines{success});
}

TEST_F(AsyncEvalServiceTest, completesEveryRequestOfManyClientsOnce) {
    constexpr int perClient = 200;
    host_.onEvaluate = [this](const std::u16string& code) { host_.print(code); };
    host_.distributor->startWorker();
    onThreads(4, [this](int number) {
        const std::string name = "client" + std::to_string(number);
        for (int i = 0; i < perClient; ++i) {
            messages_->subscribeClient(name, "/eval/response/output");
            messages_->send("/eval/request", R"("x")");
            host_.events->raise(nmutil::io::HomeEvent());
            messages_->unsubscribeClient(name, "/eval/response/output");
        }
    });
    EXPECT_TRUE(eventually([this] { return std::ranges::count(published(), success) >= 4 * perClient; }));
    host_.distributor->stopWorker();
    EXPECT_EQ(std::ranges::count(published(), success), 4 * perClient);
    EXPECT_FALSE(isListening());
    EXPECT_EQ(service_->stopListening(), 0);
}

}  // namespace
}  // namespace connector::interpreter::v1
