// What a host does with requests, whichever it is.

#include <future>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include "standalone/StandaloneHost.h"
#include "support/FakeHost.h"
#include "support/threads.h"
#include "zvm/detail.h"

namespace {

using cmddistributor::RuntimeException;
using foundation::msg_svc::exchange::IDType;
using nmutil::contextmgr::NcrID;
using zvm::TaskReference;

/// A host, which ends with what is returned. "print('x')" prints an x, "int('x')" fails.
std::shared_ptr<void> startFake() {
    auto host = std::make_shared<fake::FakeHost>();
    host->onEvaluate = [host = host.get()](const std::u16string& code) {
        if (code != u"print('x')")
            throw RuntimeException(nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:ValueError", u"x");
        host->print(u"x\n");
    };
    host->distributor->startWorker();
    return host;
}
std::shared_ptr<void> startStandalone() {
    standalone::blockInterpreterSignals();
    return std::make_shared<standalone::StandaloneHost>();
}

class HostContract : public testing::TestWithParam<bool> {
protected:
    using End = boost::optional<RuntimeException>;
    struct Delegate : cmddistributor::PromiseDelegate {
        void complete(const cmddistributor::IIPResult& result) noexcept override {
            end.set_value(result.exception());
        }
        void waitTillReady() override {}
        bool isPromiseDone() const override { return false; }
        std::promise<End> end;
    };
    struct Request {
        IDType id;
        std::future<End> end;
    };

    static std::shared_ptr<cmddistributor::CmdDistributor> distributor(const NcrID& id = {}) {
        return std::get<0>(zvm::detail::getCmdDistributorAndSinks(id, {}));
    }
    Request queue(std::shared_ptr<cmddistributor::CmdRequest> request) {
        const auto delegate = std::make_shared<Delegate>();
        const auto id = zvm::detail::createID();
        queue_->enqueue(id, std::move(request), {}, delegate);
        return {id, delegate->end.get_future()};
    }
    Request queueTask(std::function<void()> task) {
        return queue(std::make_shared<cmddistributor::PackagedTaskCmdRequest>(std::move(task)));
    }
    Request submit(Request request) {
        queue_->setReadyToExecute(request.id);
        return request;
    }
    Request submitTask(std::function<void()> task) { return submit(queueTask(std::move(task))); }
    End evaluate(const std::u16string& code) {
        return submit(queue(std::make_shared<cmddistributor::EvalCmdRequest>(
                          false, cmddistributor::IqmStreamID::User, nullptr, nullptr, code, "test::Eval")))
            .end.get();
    }

    const std::shared_ptr<void> host_ = GetParam() ? startStandalone() : startFake();
    const std::shared_ptr<cmddistributor::CmdDistributor> queue_ = distributor();
};

TEST_P(HostContract, namesOfOtherInterpretersReachNoneHere) {
    EXPECT_NE(queue_, nullptr);
    EXPECT_EQ(distributor(NcrID{7}), nullptr);
    EXPECT_NO_THROW(iqm::Iqm::getInstance(NcrID{}));
    EXPECT_THROW(iqm::Iqm::getInstance(NcrID{7}), std::runtime_error);
}

TEST_P(HostContract, runsOnOneThreadWhatIsReadyInTheOrderOfArrival) {
    std::string order;  // no lock: one at a time
    std::thread::id threads[2];
    auto first = queueTask([&] { order += "1", threads[0] = std::this_thread::get_id(); });
    submitTask([&] { order += "2"; }).end.get();
    Gate gate;
    submitTask([&] { gate.pass(); });
    gate.awaitEntry();
    submitTask([&] { order += "3"; });
    auto last = submitTask([&] { order += "4", threads[1] = std::this_thread::get_id(); });
    submit(std::move(first));
    gate.open();
    last.end.get();
    EXPECT_EQ(order, "2134");
    EXPECT_EQ(threads[0], threads[1]);
    EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST_P(HostContract, takesBackWhatHasNotBegunAndCallsContinuationsAtEveryEnd) {
    std::string order;
    Gate gate;
    auto running = submitTask([&] { gate.pass(); });
    auto waiting = submitTask([&] { order += "never"; });
    gate.awaitEntry();
    std::promise<void> runningEnded;
    queue_->addContinuation(running.id, [&] { runningEnded.set_value(); });
    queue_->addContinuation(waiting.id, [&] { order += "cancelled "; });
    EXPECT_EQ(queue_->cancel(waiting.id, true), TaskReference::CancelStatus::Cancelled);
    EXPECT_EQ(order, "cancelled ");
    EXPECT_EQ(waiting.end.get()->getExecutionStatus(), nmutil::cmddistributor::EXECUTION_CANCELLED);
    EXPECT_EQ(queue_->cancel(running.id, false), TaskReference::CancelStatus::AlreadyStarted);
    gate.open();
    EXPECT_FALSE(running.end.get());
    runningEnded.get_future().wait();
    EXPECT_EQ(queue_->cancel(running.id, true), TaskReference::CancelStatus::NotFound);
    queue_->addContinuation(running.id, [&] { order += "at once"; });
    EXPECT_EQ(order, "cancelled at once");
}

TEST_P(HostContract, failsARequestWhoseTaskThrowsAndGoesOn) {
    const auto failed = submitTask([] { throw std::logic_error("of the library"); }).end.get();
    EXPECT_EQ(failed->getExecutionStatus(), nmutil::cmddistributor::EXECUTION_ERROR);
    EXPECT_FALSE(submitTask([] {}).end.get());
}

/// Tells what it is asked to do.
class LoggingPlugin : public iqm::UserEvalPlugin {
public:
    static inline std::string log;
    using UserEvalPlugin::UserEvalPlugin;
    void pre() override { log += "pre "; }
    void processMFileError() override { log += "error "; }
    void post() override { log += "post "; }
};

TEST_P(HostContract, runsCodeThroughItsPluginAndPrintsToTheActiveWindow) {
    const auto plugin = iqm::PacketInfo::registerPlugin2(
        "test::Eval",
        [](iqm::PluginOptions options, NcrID) { return std::make_unique<LoggingPlugin>(std::move(options)); },
        false);
    const auto window = std::make_shared<fake::FakeWindow>();
    submitTask([&] { services::io::CmdWinSinkHandle::setFactory(window); }).end.get();
    EXPECT_FALSE(evaluate(u"print('x')"));
    EXPECT_EQ(LoggingPlugin::log, "pre post ");
    EXPECT_EQ(window->text(), u"x\n");
    LoggingPlugin::log.clear();
    EXPECT_EQ(evaluate(u"int('x')")->GetID(), "NUMORA:ValueError");
    EXPECT_EQ(LoggingPlugin::log, "pre error post ");
    submitTask([] { services::io::CmdWinSinkHandle::restorePreviousFactory(); }).end.get();
}

INSTANTIATE_TEST_SUITE_P(Hosts, HostContract, testing::Bool(),
                         [](const auto& info) { return info.param ? "Standalone" : "Fake"; });

}  // namespace
