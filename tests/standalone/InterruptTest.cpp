#include <atomic>
#include <csignal>
#include <string>

#include <unistd.h>

#include "RunningInterpreter.h"
#include "connector/interpreter/ConnectorEvalCmdRequest.h"
#include "services/prompt/prompt.h"
#include "zvm/detail.h"

namespace {

class InterruptTest : public RunningInterpreter {
protected:
    /// Whether code has created the variable `started`, asked without the interpreter's queue.
    std::string flagFile_ = testing::TempDir() + "numora-interrupt-" + std::to_string(getpid());
    ~InterruptTest() override { unlink(flagFile_.c_str()); }

    std::u16string signalled(const std::u16string& code) const {
        return u"open('" + std::u16string(flagFile_.begin(), flagFile_.end()) + u"', 'w').close()\n" + code;
    }
    void awaitStart() const {
        ASSERT_TRUE(eventually([this] { return access(flagFile_.c_str(), F_OK) == 0; }));
        unlink(flagFile_.c_str());
    }
};

TEST_F(InterruptTest, givesUpAfterTheTimeLimitWithTheFixedTextsAndGoesOn) {
    for (const std::u16string& code :
         {std::u16string(endlessLoop), std::u16string(u"import time; time.sleep(600)")}) {
        const EvalResponse response = eval(code, 1000);
        EXPECT_TRUE(response.isError);
        ASSERT_EQ(response.faults.size(), 1U);
        EXPECT_EQ(response.faults[0].faultCode, "Request.Timeout");
        EXPECT_EQ(response.faults[0].message, "Eval timed out after 1000 milliseconds");
        EXPECT_EQ(text(response),
                  "NUMORA operation interrupted. Operation(s) taking longer than 1 seconds are not supported "
                  "for this "
                  "product offering.");
        EXPECT_EQ(textOf(u"1 + 1"), "2\n");
    }
    EXPECT_NE(text(eval(endlessLoop, 1500)).find("longer than 1.5 seconds"), std::string::npos);
}

TEST_F(InterruptTest, takesARequestThatTimesOutInTheQueueOutAndLeavesTheRunningOneAlone) {
    EvalResponse running;
    inBackground([&] {
        running =
            eval(signalled(u"import time\nuntil = time.monotonic() + 3\n"
                           u"while time.monotonic() < until: pass\nprint('undisturbed')"));
    });
    awaitStart();
    EXPECT_TRUE(eval(u"never = 1", 200).isError);
    joinBackground();
    EXPECT_EQ(text(running), "undisturbed\n");
    EXPECT_EQ(textOf(u"'never' in globals()"), "False\n");
}

TEST_F(InterruptTest, dropsTheLateResultOfCodeThatSwallowsTheInterrupt) {
    const std::u16string stubborn = signalled(
        u"import time\nfor _ in range(2):\n    try: time.sleep(1)\n    except KeyboardInterrupt: pass");
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(eval(stubborn, 100).isError);
        EXPECT_EQ(textOf(u"'next'"), "'next'\n");
    }
}

TEST_F(InterruptTest, interruptsRunningCodeAndNothingThatRunsLater) {
    interrupt();
    EXPECT_EQ(textOf(u"'idle'"), "'idle'\n");
    for (const std::u16string& code :
         {std::u16string(endlessLoop), std::u16string(u"import time; time.sleep(600)"),
          std::u16string(u"import subprocess; subprocess.run(['sleep', '600'])")}) {
        EvalResponse interrupted;
        inBackground([&] { interrupted = eval(signalled(code)); });
        awaitStart();
        interrupt();
        joinBackground();
        EXPECT_TRUE(interrupted.isError);
        EXPECT_TRUE(text(interrupted).ends_with("KeyboardInterrupt\n")) << text(interrupted);
        interrupt();
        EXPECT_EQ(textOf(u"sum(range(100_000))"), "4999950000\n");
    }
}

TEST_F(InterruptTest, isReportedToTheEvaluationWhoseCodeHandlesIt) {
    using Statuses = connector::interpreter::ConnectorExecutionStatuses;
    const auto promise = std::make_shared<connector::Promise<Statuses>>();
    const auto distributor = host_->zvm()->getCmdDistributor();
    const auto id = zvm::detail::createID();
    const std::u16string code =
        signalled(u"try:\n    import time; time.sleep(600)\nexcept KeyboardInterrupt: pass");
    distributor->enqueue(id,
                         std::make_shared<connector::interpreter::ConnectorEvalCmdRequest>(
                             code, promise, 0, 0, nullptr, nullptr),
                         {}, std::make_shared<cmddistributor::PromiseDelegateT<Statuses>>(promise));
    distributor->setReadyToExecute(id);
    awaitStart();
    interrupt();
    const Statuses statuses = promise->getFuture().get();
    EXPECT_TRUE(statuses.ctrlCCalled);
    EXPECT_FALSE(statuses.hadReportableError);
}

TEST_F(InterruptTest, neverLeaksAnInterruptIntoTheNextEvaluation) {
    std::atomic<bool> stop{false};
    inBackground([&] {
        while (!stop) host_->zvm()->interrupt({~0ULL});
    });
    std::atomic<int> interruptions{0};
    inBackground([&] {
        while (!stop) {
            host_->zvm()->interrupt();
            ++interruptions;
        }
    });
    // Code that is interrupted says so; code that ends by itself has its value; nothing in between.
    for (int i = 0; i < 300; ++i) {
        const std::string output = textOf(u"21 * 2");
        EXPECT_TRUE(output == "42\n" || output.ends_with("KeyboardInterrupt\n")) << output;
    }
    stop = true;
    joinBackground();
    EXPECT_GT(interruptions, 0);
    EXPECT_EQ(textOf(u"sum(range(100_000))"), "4999950000\n");
}

TEST_F(InterruptTest, interruptsCodeThatWaitsAtAPrompt) {
    const auto isAt = [](nmutil::prompt::InputRequester prompt) {
        return eventually([prompt] { return services::prompt::getInputRequester() == prompt; });
    };
    EXPECT_EQ(eval(u"try: input('? ')\nexcept KeyboardInterrupt: print('interrupted')\n" +
                   signalled(u"input('again ')"))
                  .promptType,
              3);
    interrupt();
    awaitStart();
    ASSERT_TRUE(isAt(nmutil::prompt::INPUT_PROMPT));
    EXPECT_EQ(textOf(u""), "interrupted\nagain ");
    EXPECT_EQ(textOf(u"x\n"), "'x'\n");

    EXPECT_EQ(eval(u"breakpoint()\nx = 1").promptType, 1);
    interrupt();
    ASSERT_TRUE(isAt(nmutil::prompt::BASE_PROMPT));
    EXPECT_EQ(textOf(u"'idle'"), "'idle'\n");

    // What is sent behind an interrupt is no answer to the prompt that it ends, even if that takes a while.
    eval(
        u"import signal, time\n"
        u"signal.signal(signal.SIGINT, lambda *of: (time.sleep(0.05), signal.default_int_handler(*of)))\n"
        u"input()");
    interrupt();
    EXPECT_EQ(textOf(u"'idle'"), "'idle'\n");
}

TEST_F(InterruptTest, takesASignalFromATerminal) {
    EvalResponse interrupted;
    inBackground([&] { interrupted = eval(signalled(u"import time; time.sleep(600)")); });
    awaitStart();
    kill(getpid(), SIGINT);
    joinBackground();
    EXPECT_TRUE(text(interrupted).ends_with("KeyboardInterrupt\n"));
    kill(getpid(), SIGINT);
    EXPECT_EQ(textOf(u"'idle'"), "'idle'\n");
}

TEST_F(InterruptTest, releasesARequestThatWaitsWhenTheServiceStops) {
    EvalResponse released;
    inBackground([&] { released = eval(signalled(endlessLoop)); });
    awaitStart();
    module_.reset();
    joinBackground();
    EXPECT_TRUE(text(released).empty() || text(released).ends_with("KeyboardInterrupt\n"));
}

TEST_F(InterruptTest, stopsAnInterpreterThatRuns) {
    inBackground([&] {
        eval(signalled(u"try:\n    " + std::u16string(endlessLoop) + u"\nexcept KeyboardInterrupt: pass"));
    });
    awaitStart();
    module_.reset();
    host_.reset();
    joinBackground();
}

}  // namespace
