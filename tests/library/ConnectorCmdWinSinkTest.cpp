#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "connector/interpreter/ConnectorCmdWinSink.h"
#include "nmutil/events.h"
#include "shutdown/ShutdownObject.h"
#include "support/FakeHost.h"

namespace connector::interpreter {
namespace {

using numora::lang::correction::SuggestionEvent;
using StatusPromise = std::shared_ptr<Promise<ConnectorExecutionStatuses>>;

struct Sink : ConnectorCmdWinSink {
    using ConnectorCmdWinSink::errorProcessed;
    using ConnectorCmdWinSink::resetForTests;
};

class ConnectorCmdWinSinkTest : public testing::Test {
protected:
    ConnectorCmdWinSinkTest() { Sink::resetForTests(); }
    ~ConnectorCmdWinSinkTest() override { Sink::resetForTests(); }

    Future<ConnectorExecutionStatuses> open(const StatusPromise& promise = makePromise()) {
        Sink::preEval(promise);
        return Future<ConnectorExecutionStatuses>(promise->getState());
    }
    static ConnectorExecutionStatuses answer(Future<ConnectorExecutionStatuses>& future) {
        if (future.isReady()) return future.get();
        ADD_FAILURE() << "not answered";
        return {};
    }
    /// What is set, a letter for each.
    static std::string flagsOf(const ConnectorExecutionStatuses& statuses) {
        return std::string(statuses.hadReportableError ? "E" : "") + (statuses.ctrlCCalled ? "I" : "") +
               (statuses.clcCalled ? "C" : "") + (statuses.homeCalled ? "H" : "");
    }
    static StatusPromise makePromise() { return std::make_shared<Promise<ConnectorExecutionStatuses>>(); }
    static ConnectorCmdWinSink& sink() { return *Sink::getInstance(false); }

    bool captures() const { return services::io::CmdWinSinkHandle::activeSink(false) != host.window; }
    void expectIdleAndClean() {
        EXPECT_FALSE(captures());
        EXPECT_EQ(host.events->subscriptionCount<SuggestionEvent>(), 0U);
        auto next = open();
        Sink::postEval();
        const auto statuses = answer(next);
        EXPECT_EQ(statuses.output, u"");
        EXPECT_TRUE(statuses.faults.empty());
        EXPECT_EQ(flagsOf(statuses), "");
        EXPECT_FALSE(captures());
    }

    fake::FakeHost host;
};

TEST_F(ConnectorCmdWinSinkTest, reportsWhatHappenedOnce) {
    host.status = nmutil::cmddistributor::EXECUTION_INTERRUPTED;
    host.blockStatus = 1;
    host.prompt = nmutil::prompt::DEBUG_PROMPT;
    struct Row {
        std::string name;
        std::function<void()> happens;
        std::string flags;
        std::u16string output = u"before";
    };
    const auto printsAfterAnError = [this] { host.print(u"E", true), host.print(u" after"); };
    const auto suggests = [this] {
        for (const auto* name : {u"sine", u"sin"}) host.events->raise(SuggestionEvent(name));
        sink().doPrintableError(u"Oops");
    };
    const auto clears = [this] {
        host.print(std::u16string(50000, u'x'));
        host.print(u"E", true);
        sink().doClc();
        host.print(u"after");
    };
    const Row table[] = {
        {"errors are printed after the output", printsAfterAnError, "E", u"before afterE"},
        {"an error that only was processed", [] { Sink::errorProcessed(); }, "E"},
        {"the latest suggestion comes last", suggests, "E", u"beforeOops\nDid you mean: sin ?"},
        {"a clear discards both", clears, "C", u"after"},
        {"home", [] { sink().doHome(); }, "H"},
        {"Ctrl-C", [] { sink().ctrlCProcessed(); }, "I"}};
    for (const Row& row : table) {
        SCOPED_TRACE(row.name);
        auto future = open();
        EXPECT_TRUE(captures() && sink().isDirty() && host.interruptEnabled);
        host.print(u"before");
        row.happens();
        EXPECT_FALSE(future.isReady());
        Sink::postEval();
        const auto statuses = answer(future);
        EXPECT_EQ(statuses.executionStatus, nmutil::cmddistributor::EXECUTION_INTERRUPTED);
        EXPECT_EQ(statuses.codeBlockStatus, 1);
        EXPECT_EQ(statuses.inputRequester, nmutil::prompt::DEBUG_PROMPT);
        EXPECT_EQ(statuses.output, row.output);
        EXPECT_EQ(flagsOf(statuses), row.flags);
        expectIdleAndClean();
    }
    EXPECT_EQ(host.window->text(), u"");
}

TEST_F(ConnectorCmdWinSinkTest, answersNestedEvaluationsNewestFirst) {
    auto outer = open();
    auto inner = open();
    host.print(u"1");
    Sink::postEval();
    EXPECT_EQ(answer(inner).output, u"1");
    EXPECT_TRUE(captures() && !outer.isReady());
    for (int i = 0; i < 2; ++i) Sink::postEval();  // one too many
    EXPECT_EQ(answer(outer).output, u"");
    expectIdleAndClean();
}

TEST_F(ConnectorCmdWinSinkTest, announcesAPromptThatIsNewOrUrgentOrFollowsText) {
    using namespace nmutil::prompt;
    struct Step {
        InputRequester prompt;
        bool isDirty, isEmergency, isEditorInputWanted, isNecessary;
    };
    int number = 0;
    for (const Step& step :
         {Step{BASE_PROMPT, false, false, false, false},                    // new, but the base prompt
          Step{INPUT_PROMPT, false, false, false, true},                    // new
          Step{INPUT_PROMPT, false, false, false, false},                   // seen
          Step{INPUT_PROMPT, true, false, false, true},                     // text was shown
          Step{INPUT_PROMPT, false, true, false, true},                     // urgent
          Step{KINETRIX_IN_EDITOR_DEBUG_PROMPT, true, true, false, false},  // shown elsewhere
          Step{INPUT_PROMPT, false, false, false, false},                   // which is not remembered
          Step{KINETRIX_IN_EDITOR_DEBUG_PROMPT, false, false, true, true},  // shown here
          Step{BASE_PROMPT, true, true, false, false}}) {
        host.prompt = step.prompt;
        host.promptEmergency = step.isEmergency;
        host.editorDebugInputWanted = step.isEditorInputWanted;
        sink().setDirty(step.isDirty);
        EXPECT_EQ(sink().isInputRequestNecessary(), step.isNecessary) << ++number;
    }
}

TEST_F(ConnectorCmdWinSinkTest, closesTheLevelOfAnEvaluationThatIsAnsweredAlready) {
    host.prompt = nmutil::prompt::INPUT_PROMPT;
    for (const bool asksForInput : {false, true}) {
        const auto promise = makePromise();
        open(promise);
        host.print(u"lost");
        promise->setValue({});
        EXPECT_THROW(asksForInput ? sink().requestInput() : Sink::postEval(), std::runtime_error);
        if (asksForInput) Sink::postEval();
        expectIdleAndClean();
    }
}

TEST_F(ConnectorCmdWinSinkTest, failsAnEvaluationWhoseStatusIsNotAvailable) {
    auto future = open();
    host.onStatusQuery = [] { throw std::logic_error("no status"); };
    Sink::postEval();
    host.onStatusQuery = nullptr;
    EXPECT_THROW(answer(future), std::logic_error);
    expectIdleAndClean();
}

TEST_F(ConnectorCmdWinSinkTest, opensNothingWhenTheHostCannotSubscribe) {
    host.hasEventManager = false;
    const auto promise = makePromise();
    EXPECT_THROW(open(promise), std::runtime_error);
    EXPECT_EQ(promise.use_count(), 1);
    host.hasEventManager = true;
    expectIdleAndClean();
}

TEST_F(ConnectorCmdWinSinkTest, lendsTheSinkToAContinuationOfTheAnswer) {
    auto future = open();
    std::shared_ptr<ConnectorCmdWinSink> seen;
    future.then([&seen](auto) { seen = Sink::getInstance(true); });
    Sink::postEval();
    EXPECT_NE(seen, nullptr);
}

TEST_F(ConnectorCmdWinSinkTest, takesSuggestionsFromAnotherThreadWhileLevelsOpenAndClose) {
    std::atomic<bool> isOver{false};
    std::atomic<int> raised{0};
    std::thread suggesting([&] {
        for (; !isOver; ++raised) host.events->raise(SuggestionEvent(u"sin"));
    });
    for (int levels = 0; levels < 500 || raised < 500; ++levels) {
        auto future = open();
        Sink::postEval();
        EXPECT_TRUE(future.isReady());
    }
    isOver = true;
    suggesting.join();
    EXPECT_EQ(host.events->subscriptionCount<SuggestionEvent>(), 0U);
}

TEST_F(ConnectorCmdWinSinkTest, closesEveryLevelWhenTheHostShutsDown) {
    auto outer = open();
    const auto answered = makePromise();
    open(answered);
    answered->setValue({});
    testing::internal::CaptureStdout();
    EXPECT_TRUE(shutdown::ShutdownRegistry::run(false));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Problem shutting down ConnectorCmdWinSink.\n");
    EXPECT_TRUE(outer.isReady());
    expectIdleAndClean();
}

}  // namespace
}  // namespace connector::interpreter
