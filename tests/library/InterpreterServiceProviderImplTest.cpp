#include <future>
#include <limits>

#include "InterpreterFixture.h"
#include "cmddistributor/RuntimeException.h"
#include "connector/common/requests.h"
#include "connector/interpreter/ConnectorEvalPlugin.h"
#include "iqm/plugins.h"

namespace connector::interpreter::v1 {
namespace {

class InterpreterServiceProviderImplTest : public InterpreterFixture {
private:
    const nmutil::ScopedFactoryRegistration plugin_ = iqm::PacketInfo::registerPlugin2(
        ConnectorEvalPlugin::registeredName,
        [](iqm::PluginOptions options, nmutil::contextmgr::NcrID) {
            return std::make_unique<ConnectorEvalPlugin>(std::move(options));
        },
        false);
};

TEST_F(InterpreterServiceProviderImplTest, bracketsTheCodeWithALevelAndTheClientsWindowSize) {
    host_.distributor->startWorker();
    // Text that the host prints while it is told of the end still belongs to the evaluation.
    host_.onPendingInterests = [this] { host_.print(u" end"); };
    for (const int columns : {0, -1, 120}) {
        host_.calls.clear();
        host_.onEvaluate = [&](const std::u16string& code) {
            host_.print(code);
            EXPECT_TRUE(ConnectorEvalPlugin::isLicenceBusy());
            EXPECT_EQ(host_.columns, columns > 0 ? 120U : 80U);
            EXPECT_EQ(host_.rows, columns > 0 ? 50U : 24U);
        };
        EXPECT_EQ(eval(u"code", 0, columns, 50)->responseStr, u"code end");
        EXPECT_EQ(host_.columns, 80U);
        EXPECT_EQ(host_.rows, 24U);
        EXPECT_FALSE(ConnectorEvalPlugin::isLicenceBusy());
        EXPECT_EQ(host_.calls, (std::vector<std::string>{"evalEnd", "interests"}));
        EXPECT_EQ(lastOptions().whenToDequeue(), cmddistributor::WhenToDequeue::Default);
    }
}

TEST_F(InterpreterServiceProviderImplTest, reportsErrorsOfBuiltinsAndExtensionsItself) {
    host_.onEvaluate = [](const std::u16string&) {
        throw cmddistributor::RuntimeException(nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:x", u"x");
    };
    host_.distributor->startWorker();
    EXPECT_FALSE(eval(u"x")->isError);
    host_.builtinName = std::string("error");
    EXPECT_FALSE(eval(u"x")->isError);
    host_.builtinName = std::string("sin");
    EXPECT_TRUE(eval(u"x")->isError);
    host_.builtinName = std::string("error");
    host_.inCompiledExtension = true;
    EXPECT_TRUE(eval(u"x")->isError);
}

TEST_F(InterpreterServiceProviderImplTest, answersWhenTheHostFailsBeforeAndAfterTheCode) {
    host_.onSetRows = [](std::uint64_t rows) {
        if (rows == 50) throw std::runtime_error("host");
    };
    host_.onEvaluate = [this](const std::u16string& code) { host_.print(code); };
    host_.onPendingInterests = [] { throw std::runtime_error("host"); };
    host_.distributor->startWorker();
    EXPECT_EQ(faults(*eval(u"code", 0, 120, 50)), "NUMORA.CodeError: Error while executing eval request.;");
    EXPECT_EQ(services::io::CmdWinSinkHandle::activeSink(false), host_.window);
    EXPECT_EQ(host_.columns, 80U);
    EXPECT_FALSE(ConnectorEvalPlugin::isLicenceBusy());
    EXPECT_EQ(eval(u"code")->responseStr, u"code");
    host_.distributor->stopWorker();
    EXPECT_EQ(services::io::CmdWinSinkHandle::activeSink(false), host_.window);
}

TEST_F(InterpreterServiceProviderImplTest, mapsThePromptAtTheEnd) {
    const std::vector<int> promptTypes{4, 0, 1, 3, 2, 4, 0, 1, 4, 4, 0, 1, 1, 0, 1, 0};
    auto prompt = std::numeric_limits<std::uint32_t>::max();  // and 0 after it
    host_.distributor->startWorker();
    for (const int promptType : promptTypes) {
        host_.prompt = static_cast<nmutil::prompt::InputRequester>(prompt);
        EXPECT_EQ(eval(u"x")->promptType, promptType) << prompt;
        ++prompt;
    }
}

TEST_F(InterpreterServiceProviderImplTest, refusesWhenThereIsNoInterpreterOrNoService) {
    host_.zvm->available = false;
    EXPECT_EQ(faults(*eval(u"x")), "NUMORA.CodeError: NUMORA not available.;");
    host_.zvm->available = true;
    provider_->stop();
    const auto response = eval(u"x");
    EXPECT_EQ(faults(*response), "NUMORA.CodeError: NUMORA not available.;");
    EXPECT_TRUE(response->isError);
    EXPECT_TRUE(host_.distributor->enqueued().empty());
    provider_->start();
    host_.distributor->refusal = {nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:queue:full", u"full"};
    EXPECT_EQ(faults(*eval(u"x")), "NUMORA.CodeError: Error while executing eval request.;");
}

TEST_F(InterpreterServiceProviderImplTest, dropsARequestThatWaitedSinceBeforeAnInterrupt) {
    host_.distributor->startWorker();
    context_->set("requestStartTime", std::uint64_t{1});
    eval(u"before any interrupt");
    interrupt();
    EXPECT_FALSE(context_->has("requestDropped"));
    EXPECT_EQ(faults(*eval(u"dropped")), "");
    EXPECT_TRUE(context_->getOr("requestDropped", false));
    context_ = std::make_shared<common::ContextState>();
    eval(u"without a time");
    common::stampArrival(*context_);
    context_->set("requestStartTime", std::uint64_t{1});
    eval(u"later, after the system's clock was set back");
    interrupt();
    eval(u"dropped by its stamp");
    EXPECT_TRUE(context_->getOr("requestDropped", false));
    EXPECT_EQ(host_.distributor->enqueued().size(), 3U);
}

TEST_F(InterpreterServiceProviderImplTest, saysWhatIsNotSupportedAfterTheTimeLimit) {
    std::promise<void> mayEnd;
    host_.onEvaluate = [&](const std::u16string&) { mayEnd.get_future().wait(); };
    host_.distributor->startWorker();
    const auto response = eval(u"slow", 20);
    EXPECT_TRUE(response->isError);
    EXPECT_EQ(response->responseStr,
              u"NUMORA operation interrupted. Operation(s) taking longer than 0.02 seconds are not supported "
              u"for this product offering.");
    EXPECT_EQ(host_.zvm->requestInterrupts, 1);
    EXPECT_EQ(host_.distributor->interrupts, 0);
    mayEnd.set_value();
    host_.distributor->stopWorker();
}

TEST_F(InterpreterServiceProviderImplTest, typesNothingThatTimesOutBeforeItBegins) {
    host_.charBufferMode = true;
    EXPECT_TRUE(eval(u"never", 20)->isError);
    EXPECT_FALSE(host_.distributor->runNext());
    EXPECT_EQ(host_.typed, u"");
}

}  // namespace
}  // namespace connector::interpreter::v1
