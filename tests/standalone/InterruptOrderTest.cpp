#include "RunningInterpreter.h"
#include "support/LogRecords.h"

namespace {

std::promise<void> nativeCodeMayEnd;

// What the tests below call. No signal ends run_native_code.
constexpr const char16_t* jobs =
    uR"(
import time
may_end = False
def let_end():
    global may_end
    may_end = True
def value(): return 7
def endless():
    begin()
    while True: time.sleep(0.001)
def swallow_all():
    while not may_end:
        try:
            begin()
            while not may_end: time.sleep(0.001)
        except KeyboardInterrupt: pass
    return 7
def swallow_and_return():
    try: endless()
    except KeyboardInterrupt: pass
def swallow_first():
    swallow_and_return()
    endless()
def stay_native():
    begin()
    run_native_code()
)";

/// Interrupts in every order with the request that they meet: an evaluation or, where the parameter is true,
/// a call.
class InterruptOrderTest : public RunningInterpreter, public testing::WithParamInterface<bool> {
protected:
    static constexpr const char* released = "Error while executing eval request.";
    static constexpr const char* cancelled = "Request was cancelled before starting.";

    InterruptOrderTest() {
        defineBegin();
        define(u"run_native_code", [] { nativeCodeMayEnd.get_future().wait(); });
        eval(jobs);
    }

    /// How a job is answered: the message of a fault, or else the result or the last line that was printed.
    std::string run(const std::u16string& job, int timeoutMs = 0, ContextPtr context = nullptr) {
        if (GetParam()) return call(job, {}, 1, "", timeoutMs, std::move(context));
        std::string all = answer(eval(job + u"()", timeoutMs, 0, 0, std::move(context)));
        if (all.ends_with('\n')) all.pop_back();
        return all.substr(all.rfind('\n') + 1);
    }
    /// Runs a job in the background, and returns when it has begun.
    std::future<std::string> startJob(const std::u16string& job) {
        return start([this, job] { return run(job); });
    }
    void letEnd() { call(u"let_end", {}, 0, "ppe"); }
    static std::string name() { return GetParam() ? "FEval" : "Eval"; }
    static std::string logName() { return name() + " test"; }
    static std::string value() { return GetParam() ? "[7]" : "7"; }  // how a job is answered that returns 7
    static std::string timedOut() { return name() + " timed out after 200 milliseconds"; }
    static std::string goesOn() { return "warning: The interrupted code is still running: " + logName(); }
    static std::string hasEnded() { return "info: The interrupted code has ended: " + logName(); }

    static ContextPtr arrived(std::chrono::milliseconds fromNow) {
        const auto time = (std::chrono::system_clock::now() + fromNow).time_since_epoch();
        auto context = std::make_shared<connector::common::ContextState>();
        context->set("requestStartTime", static_cast<std::uint64_t>(time / std::chrono::milliseconds(1)));
        return context;
    }
};

TEST_P(InterruptOrderTest, beforeDropsWhatHadArrivedByThen) {
    interrupt();
    EXPECT_EQ(run(u"begin", 0, arrived(std::chrono::seconds(-10))), (GetParam() ? "[null]" : ""));
    EXPECT_EQ(begun, GetParam() ? 1 : 0);
    EXPECT_EQ(run(u"value", 0, arrived(std::chrono::seconds(10))), value());
    EXPECT_EQ(run(u"value"), value());
}

TEST_P(InterruptOrderTest, duringEndsWhatRunsAndAfterwardsNothing) {
    for (int i = 0; i < 3; ++i) {
        auto running = startJob(u"endless");
        interrupt();
        EXPECT_EQ(running.get(), "KeyboardInterrupt");
        interrupt();
        EXPECT_EQ(run(u"value"), value());
    }
}

TEST_P(InterruptOrderTest, twiceEndsWhatSwallowsTheFirst) {
    const LogRecords log;
    auto running = startJob(u"swallow_first");
    interrupt();
    EXPECT_EQ(running.get(), released);
    EXPECT_EQ(log.count(hasEnded()), 0);
    interrupt();
    EXPECT_EQ(run(u"value"), value());
    EXPECT_EQ(log.count(goesOn()), 1) << log.all();
    EXPECT_EQ(log.count(hasEnded()), 1) << log.all();
}

TEST_P(InterruptOrderTest, releasesWhatDoesNotEndAndWhatWaitsAfterIt) {
    for (const bool isNative : {false, true}) {
        auto running = startJob(isNative ? u"stay_native" : u"swallow_all");
        const int before = begun;
        const LogRecords log(LogRecords::Severity::Debug);
        auto waiting = std::async(std::launch::async, [this] { return run(u"begin"); });
        EXPECT_TRUE(eventually([&log] { return log.count("debug: Enqueuing") > 0; }));
        const auto asked = std::chrono::steady_clock::now();
        interrupt();
        EXPECT_EQ(running.get(), released);
        EXPECT_EQ(waiting.get(), cancelled);
        // Half a second, on a busy machine.
        EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(5));
        isNative ? nativeCodeMayEnd.set_value() : letEnd();
        EXPECT_EQ(run(u"value"), value());
        // What waited never ran; code that swallows an interrupt begins again.
        EXPECT_EQ(begun, isNative ? before : before + 1);
    }
}

TEST_P(InterruptOrderTest, answersAtTheTimeLimitThoughTheInterruptIsSwallowed) {
    const LogRecords log;
    EXPECT_EQ(run(u"swallow_all", 200), timedOut());
    EXPECT_EQ(run(u"begin", 200), timedOut());
    EXPECT_EQ(log.count(goesOn()), 1) << log.all();
    letEnd();
    EXPECT_EQ(run(u"value"), value());
    EXPECT_EQ(log.count(hasEnded()), 1) << log.all();
}

TEST_P(InterruptOrderTest, leavesTheRunningCodeAloneWhenAnotherRequestTimesOut) {
    auto running = startJob(u"swallow_all");
    const int before = begun;
    EXPECT_EQ(call(u"swallow_and_return", {}, 1, "ppe", 200), "FEval timed out after 200 milliseconds");
    EXPECT_EQ(call(u"value", {}, 1, "ppe"), "[7]");
    EXPECT_EQ(run(u"begin", 200), timedOut());  // in the queue
    letEnd();
    EXPECT_EQ(running.get(), value());
    EXPECT_EQ(run(u"value"), value());
    EXPECT_EQ(begun, before + 1);  // by the call alone: the code around it was not interrupted
}

INSTANTIATE_TEST_SUITE_P(Kinds, InterruptOrderTest, testing::Bool(),
                         [](const auto& info) { return info.param ? "FEval" : "Eval"; });

}  // namespace
