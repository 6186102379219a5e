#include <future>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "cmddistributor/RuntimeException.h"
#include "connector/common/requests.h"
#include "connector/interpreter/ConnectorEvalPlugin.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/InterpreterServiceProviderImpl.h"
#include "connector/interpreter/v1/InterruptResponse.h"
#include "iqm/plugins.h"
#include "support/FakeHost.h"
#include "support/ManualConfiguration.h"
#include "v1/StartupWakeUp.h"

namespace connector::interpreter::v1 {
namespace {

using cmddistributor::WhenToDequeue;

class InterpreterServiceProviderImplTest : public testing::Test {
protected:
    InterpreterServiceProviderImplTest() {
        StartupWakeUp::begin(nullptr);
        provider_->start();
        context_->set("clientType", std::string("test"));
    }
    ~InterpreterServiceProviderImplTest() override {
        host_.distributor->stopWorker();
        StartupWakeUp::end();
    }

    std::unique_ptr<EvalResponse> eval(std::u16string code, std::int32_t timeoutMs = 0) {
        auto request = std::make_unique<Eval>("id");
        request->mcode = std::move(code);
        request->timeoutMs = timeoutMs;
        const common::CurrentContext current(context_);
        auto future = provider_->handle(std::move(request));
        EXPECT_TRUE(future.isReady());
        auto message = future.get();
        return std::unique_ptr<EvalResponse>(dynamic_cast<EvalResponse*>(message.release()));
    }
    static std::string faults(const connector::common::v1::Response& response) {
        std::string all;
        for (const auto& fault : response.faults) all += fault.faultCode + ": " + fault.message + ";";
        return all;
    }
    void interrupt() { provider_->handle(std::make_unique<Interrupt>("interrupt")).get(); }

    fake::FakeHost host_;
    std::shared_ptr<fake::ManualConfiguration> configuration_ = std::make_shared<fake::ManualConfiguration>();
    std::shared_ptr<InterpreterServiceProviderImpl> provider_ =
        std::make_shared<InterpreterServiceProviderImpl>(configuration_, host_.zvm);
    std::shared_ptr<common::ContextState> context_ = std::make_shared<common::ContextState>();
    const nmutil::ScopedFactoryRegistration plugin_ = iqm::PacketInfo::registerPlugin2(
        ConnectorEvalPlugin::registeredName,
        [](iqm::PluginOptions options, nmutil::contextmgr::NcrID) {
            return std::make_unique<ConnectorEvalPlugin>(std::move(options));
        },
        false);
};

TEST_F(InterpreterServiceProviderImplTest, answersWithWhatTheCodePrinted) {
    host_.onEvaluate = [this](const std::u16string& code) { host_.print(u"ran " + code); };
    host_.distributor->startWorker();
    const auto response = eval(u"x");
    EXPECT_EQ(response->uuid(), "id");
    EXPECT_EQ(response->responseStr, u"ran x");
    EXPECT_FALSE(response->isError);
    EXPECT_EQ(host_.distributor->enqueued().at(0).options.whenToDequeue(), WhenToDequeue::Default);
    EXPECT_EQ(host_.window->text(), u"");
}

TEST_F(InterpreterServiceProviderImplTest, showsAnErrorThroughTheRequestsOwnCallback) {
    host_.onEvaluate = [this](const std::u16string&) {
        host_.print(u"out ");
        throw cmddistributor::RuntimeException(nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:id",
                                               u"message", u"error text");
    };
    host_.distributor->startWorker();
    const auto response = eval(u"x");
    EXPECT_EQ(response->responseStr, u"out error text");
    EXPECT_TRUE(response->isError);
    EXPECT_EQ(faults(*response), "");
}

TEST_F(InterpreterServiceProviderImplTest, mapsThePromptAtTheEnd) {
    const std::vector<std::pair<std::uint32_t, int>> table = {
        {0, 0},  {1, 1},  {2, 3},  {3, 2},
        {4, 4},  {5, 0},  {6, 1},  {7, 4},
        {8, 4},  {9, 0},  {10, 1}, {11, 1},
        {12, 0}, {13, 1}, {14, 0}, {std::numeric_limits<std::uint32_t>::max(), 4},
    };
    host_.distributor->startWorker();
    for (const auto& [prompt, promptType] : table) {
        host_.prompt = static_cast<nmutil::prompt::InputRequester>(prompt);
        EXPECT_EQ(eval(u"x")->promptType, promptType) << prompt;
    }
}

TEST_F(InterpreterServiceProviderImplTest, refusesWhenThereIsNoInterpreterOrNoService) {
    const std::string refusal = "NUMORA.CodeError: NUMORA not available.;";
    host_.zvm->available = false;
    EXPECT_EQ(faults(*eval(u"x")), refusal);
    host_.zvm->available = true;
    provider_->stop();
    EXPECT_EQ(faults(*eval(u"x")), refusal);
    provider_ = std::make_shared<InterpreterServiceProviderImpl>(configuration_, nullptr);
    provider_->start();
    const auto response = eval(u"x");
    EXPECT_EQ(faults(*response), refusal);
    EXPECT_TRUE(response->isError);
    EXPECT_TRUE(host_.distributor->enqueued().empty());
}

TEST_F(InterpreterServiceProviderImplTest, dropsARequestThatWaitedSinceBeforeAnInterrupt) {
    host_.distributor->startWorker();
    context_->set("requestStartTime", std::uint64_t{1});
    eval(u"before any interrupt");
    EXPECT_FALSE(context_->has("requestDropped"));
    interrupt();
    const auto dropped = eval(u"dropped");
    EXPECT_FALSE(dropped->isError);
    EXPECT_EQ(faults(*dropped), "");
    EXPECT_TRUE(context_->getOr("requestDropped", false));
    context_ = std::make_shared<common::ContextState>();
    eval(u"without a time");
    context_->set("requestStartTime", std::numeric_limits<std::uint64_t>::max());
    eval(u"later");
    common::stampArrival(*context_);
    context_->set("requestStartTime", std::uint64_t{1});
    eval(u"later, after the system's clock was set back");
    EXPECT_EQ(host_.distributor->enqueued().size(), 4U);
}

TEST_F(InterpreterServiceProviderImplTest, givesUpAfterTheTimeLimitAndSurvivesTheLateResult) {
    std::promise<void> mayEnd;
    host_.onEvaluate = [&](const std::u16string& code) {
        if (code == u"slow") mayEnd.get_future().wait();
    };
    host_.distributor->startWorker();
    const auto response = eval(u"slow", 20);
    EXPECT_TRUE(response->isError);
    EXPECT_EQ(faults(*response), "Request.Timeout: Eval timed out after 20 milliseconds;");
    EXPECT_EQ(response->responseStr,
              u"NUMORA operation interrupted. Operation(s) taking longer than 0.02 seconds are not supported "
              u"for this "
              u"product offering.");
    EXPECT_EQ(host_.zvm->interruptedRequests().size(), 1U);
    EXPECT_EQ(host_.zvm->interrupts, 0);
    mayEnd.set_value();
    EXPECT_EQ(faults(*eval(u"next")), "");
}

TEST_F(InterpreterServiceProviderImplTest, takesARequestThatTimesOutBeforeItBeginsOutOfTheQueue) {
    for (const bool isTyped : {false, true}) {
        host_.charBufferMode = isTyped;
        EXPECT_TRUE(eval(u"never", 20)->isError);
        EXPECT_FALSE(host_.distributor->runNext());
    }
    EXPECT_EQ(host_.typed, u"");
    EXPECT_EQ(host_.zvm->interrupts, 0);
}

TEST_F(InterpreterServiceProviderImplTest, typesTheCodeWhileTheInterpreterReadsCharacters) {
    host_.charBufferMode = true;
    host_.prompt = nmutil::prompt::INPUT_PROMPT;
    std::vector<std::unique_ptr<EvalResponse>> responses(3);
    std::vector<std::thread> clients;
    for (std::size_t i = 0; i < responses.size(); ++i) {
        clients.emplace_back(
            [&, i] { responses[i] = eval(std::u16string(1, static_cast<char16_t>(u'a' + i))); });
        while (host_.distributor->enqueued().size() <= i) std::this_thread::yield();
    }
    for (std::size_t i = 0; i < responses.size(); ++i) {
        host_.charBufferMode = i < 2;  // the last one comes when the code has stopped to read
        while (!host_.distributor->runNext(WhenToDequeue::Prompt)) std::this_thread::yield();
    }
    EXPECT_EQ(host_.typed, u"ab");
    host_.print(u"rest");
    host_.prompt = nmutil::prompt::BASE_PROMPT;
    EXPECT_TRUE(host_.distributor->runNext(WhenToDequeue::Default));
    EXPECT_FALSE(host_.distributor->runNext());
    for (auto& client : clients) client.join();
    EXPECT_EQ(responses[0]->responseStr, u"");
    EXPECT_EQ(responses[1]->responseStr, u"rest");
    EXPECT_EQ(faults(*responses[0]) + faults(*responses[1]), "");
    EXPECT_EQ(faults(*responses[2]), "NUMORA.CodeError: Request was cancelled before starting.;");
}

TEST_F(InterpreterServiceProviderImplTest, turnsFailuresOfTheQueueIntoFaults) {
    std::unique_ptr<EvalResponse> response;
    std::thread client([&] { response = eval(u"x"); });
    while (host_.distributor->enqueued().empty()) std::this_thread::yield();
    host_.distributor->cancel(host_.distributor->enqueued().at(0).id, false);
    client.join();
    EXPECT_EQ(faults(*response), "NUMORA.CodeError: Request was cancelled before starting.;");

    host_.distributor->refuse({nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:queue:full", u"full"});
    EXPECT_EQ(faults(*eval(u"x")), "NUMORA.CodeError: Error while executing eval request.;");
}

TEST_F(InterpreterServiceProviderImplTest, releasesPendingRequestsThatDoNotEnd) {
    enum class By { Interrupt, Stop, VanishedInterpreter };
    for (const By by : {By::Interrupt, By::Stop, By::VanishedInterpreter}) {
        const std::size_t before = host_.distributor->enqueued().size();
        std::vector<std::unique_ptr<EvalResponse>> responses(2);
        std::vector<std::thread> clients;
        for (auto& response : responses) clients.emplace_back([&] { response = eval(u"never runs"); });
        while (host_.distributor->enqueued().size() < before + 2) std::this_thread::yield();
        if (by == By::Interrupt) interrupt();
        if (by == By::Stop) provider_->stop();
        if (by == By::VanishedInterpreter) host_.zvm->available = false;
        for (auto& client : clients) client.join();
        for (const auto& response : responses) {
            // A handler that sees the service stop before it is released gives up with what it has.
            const std::string cancelled = "NUMORA.CodeError: Request was cancelled before starting.;";
            if (by != By::VanishedInterpreter && (by != By::Stop || !response->faults.empty())) {
                EXPECT_EQ(faults(*response), cancelled);
            } else {
                EXPECT_EQ(faults(*response), "");
            }
        }
        provider_->start();
        host_.zvm->available = true;
    }
    EXPECT_EQ(host_.zvm->interrupts, 1);
    EXPECT_TRUE(host_.interruptPending);
    host_.distributor->startWorker();
    EXPECT_EQ(faults(*eval(u"next")), "");
}

TEST_F(InterpreterServiceProviderImplTest, releasesARequestWhoseCodeGoesOn) {
    std::promise<void> hasBegun;
    std::promise<void> mayEnd;
    host_.onEvaluate = [&](const std::u16string& code) {
        if (code != u"stubborn") return;
        hasBegun.set_value();
        mayEnd.get_future().wait();
    };
    host_.distributor->startWorker();
    std::unique_ptr<EvalResponse> response;
    std::thread client([&] { response = eval(u"stubborn"); });
    hasBegun.get_future().wait();
    interrupt();
    client.join();
    EXPECT_EQ(faults(*response), "NUMORA.CodeError: Error while executing eval request.;");
    mayEnd.set_value();
    EXPECT_EQ(faults(*eval(u"next")), "");
}

TEST_F(InterpreterServiceProviderImplTest, needsTheModulesStartUp) {
    StartupWakeUp::end();
    EXPECT_THROW(eval(u"x"), std::runtime_error);
    StartupWakeUp::begin(nullptr);
}

}  // namespace
}  // namespace connector::interpreter::v1
