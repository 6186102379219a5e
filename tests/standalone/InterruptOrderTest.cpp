#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include "RunningInterpreter.h"
#include "connector/common/ContextState.h"
#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "fl/i18n/text.h"
#include "support/LogRecords.h"

namespace v1 = connector::interpreter::v1;

namespace {

using Clock = std::chrono::steady_clock;
using ContextPtr = std::shared_ptr<connector::common::ContextState>;

// What the jobs below call. No signal ends the second one.
std::atomic<int> begun{0};
std::promise<void> nativeCodeMayEnd;
void begin() { ++begun; }
void runNativeCode() { nativeCodeMayEnd.get_future().wait(); }

constexpr const char16_t* jobs =
    uR"(
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
def swallow_first():
    try: endless()
    except KeyboardInterrupt: pass
    endless()
def swallow_and_return():
    try: endless()
    except KeyboardInterrupt: pass
def stay_native():
    begin()
    run_native_code()
)";

struct Kind {
    std::string name;
    bool isCall;
    std::string logName;  // what begins its name in the log
    std::string value;    // how a job is answered that returns 7
    std::string stale;    // and one that is older than an interrupt

    friend void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }
};

/// Interrupts in every order with the request that they meet, which is of either kind.
class InterruptOrderTest : public RunningInterpreter, public testing::WithParamInterface<Kind> {
protected:
    static constexpr const char* released = "Error while executing eval request.";
    static constexpr const char* cancelled = "Request was cancelled before starting.";
    static constexpr auto soon = std::chrono::seconds(5);  // what takes half a second, on a busy machine

    InterruptOrderTest() {
        eval(u"import ctypes, time\nbegin = " + function(&begin) + u"\nrun_native_code = " +
             function(&runNativeCode) + jobs);
    }

    /// How a job is answered: the message of a fault, or else the result or the last line that was printed.
    std::string run(const std::u16string& job, int timeoutMs = 0, ContextPtr context = nullptr) {
        if (GetParam().isCall) {
            auto request = std::make_unique<v1::FEval>("id");
            request->function = job;
            request->nargout = 1;
            request->timeoutMs = timeoutMs;
            return answer(std::move(request), std::move(context), &v1::FEvalResponse::results);
        }
        auto request = std::make_unique<v1::Eval>("id");
        request->mcode = job + u"()";
        request->timeoutMs = timeoutMs;
        return answer(std::move(request), std::move(context), &v1::EvalResponse::responseStr);
    }
    /// Runs a job in the background, and returns when it has begun.
    std::future<std::string> start(const std::u16string& job) {
        const int before = begun;
        auto answered = std::async(std::launch::async, [this, job] { return run(job); });
        EXPECT_TRUE(eventually([before] { return begun > before; }));
        return answered;
    }
    /// Runs a job behind the one that runs, and returns when it is among the pending ones.
    std::future<std::string> enqueue(const std::u16string& job) {
        const LogRecords log(LogRecords::Severity::Debug);
        auto answered = std::async(std::launch::async, [this, job] { return run(job); });
        EXPECT_TRUE(eventually([&log] { return log.count("debug: Enqueuing") > 0; }));
        return answered;
    }
    void letEnd() { call(u"let_end", {}, 0, "ppe"); }

    static ContextPtr arrivedNow(std::chrono::milliseconds offset) {
        const auto time = (std::chrono::system_clock::now() + offset).time_since_epoch();
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
        auto context = std::make_shared<connector::common::ContextState>();
        context->set("requestStartTime", static_cast<std::uint64_t>(ms));
        return context;
    }

private:
    static std::u16string function(void (*address)()) {
        return u"ctypes.PYFUNCTYPE(None)(" +
               fl::i18n::to_ustring(std::to_string(reinterpret_cast<std::uintptr_t>(address))) + u")";
    }
    template <class Response>
    std::string answer(std::unique_ptr<connector::Message> request, ContextPtr context,
                       std::u16string Response::*text) {
        const auto message = deliver(std::move(request), std::move(context)).get();
        const auto& response = dynamic_cast<const Response&>(*message);
        if (!response.faults.empty()) return response.faults.front().message;
        std::string all = fl::i18n::to_string(response.*text);
        if (all.ends_with('\n')) all.pop_back();
        return all.substr(all.rfind('\n') + 1);
    }
};

TEST_P(InterruptOrderTest, beforeDropsWhatHadArrivedByThen) {
    interrupt();
    EXPECT_EQ(run(u"begin", 0, arrivedNow(std::chrono::seconds(-10))), GetParam().stale);
    EXPECT_EQ(begun, GetParam().isCall ? 1 : 0);
    EXPECT_EQ(run(u"value", 0, arrivedNow(std::chrono::seconds(10))), GetParam().value);
    EXPECT_EQ(run(u"value"), GetParam().value);
}

TEST_P(InterruptOrderTest, duringEndsWhatRunsAndAfterwardsNothing) {
    for (int i = 0; i < 3; ++i) {
        auto running = start(u"endless");
        interrupt();
        EXPECT_EQ(running.get(), "KeyboardInterrupt");
        interrupt();
        EXPECT_EQ(run(u"value"), GetParam().value);
    }
}

TEST_P(InterruptOrderTest, twiceEndsWhatSwallowsTheFirst) {
    const LogRecords log;
    auto running = start(u"swallow_first");
    interrupt();
    EXPECT_EQ(running.get(), released);
    const std::string goesOn = "warning: The interrupted code is still running: " + GetParam().logName;
    const std::string hasEnded = "info: The interrupted code has ended: " + GetParam().logName;
    EXPECT_EQ(log.count(goesOn), 1) << log.all();
    EXPECT_EQ(log.count(hasEnded), 0);
    interrupt();
    EXPECT_EQ(run(u"value"), GetParam().value);
    EXPECT_EQ(log.count(goesOn), 1) << log.all();
    EXPECT_EQ(log.count(hasEnded), 1) << log.all();
}

TEST_P(InterruptOrderTest, releasesWhatDoesNotEndAndWhatWaitsBehindIt) {
    for (const bool isNative : {false, true}) {
        auto running = start(isNative ? u"stay_native" : u"swallow_all");
        const int before = begun;
        auto waiting = enqueue(u"begin");
        const auto asked = Clock::now();
        interrupt();
        EXPECT_EQ(running.get(), released);
        EXPECT_EQ(waiting.get(), cancelled);
        EXPECT_LT(Clock::now() - asked, soon);
        isNative ? nativeCodeMayEnd.set_value() : letEnd();
        EXPECT_EQ(run(u"value"), GetParam().value);
        // What waited never ran; code that swallows an interrupt begins again.
        EXPECT_EQ(begun, isNative ? before : before + 1);
    }
}

TEST_P(InterruptOrderTest, answersAtTheTimeLimitThoughTheInterruptIsSwallowed) {
    const std::string timedOut = GetParam().name + " timed out after 200 milliseconds";
    const LogRecords log;
    const auto asked = Clock::now();
    EXPECT_EQ(run(u"swallow_all", 200), timedOut);
    EXPECT_EQ(run(u"begin", 200), timedOut);
    EXPECT_LT(Clock::now() - asked, soon);
    EXPECT_EQ(log.count("warning: The interrupted code is still running: "), 1) << log.all();
    letEnd();
    EXPECT_EQ(run(u"value"), GetParam().value);
    EXPECT_EQ(log.count("info: The interrupted code has ended: " + GetParam().logName), 1) << log.all();
}

TEST_P(InterruptOrderTest, leavesTheRunningCodeAloneWhenACallInsideItTimesOut) {
    auto running = start(u"swallow_all");
    const int before = begun;
    EXPECT_EQ(call(u"swallow_and_return", {}, 1, "ppe", 200), "FEval timed out after 200 milliseconds");
    EXPECT_EQ(call(u"value", {}, 1, "ppe"), "[7]");
    EXPECT_EQ(call(u"value", {}, 1, "prompt", 200), "FEval timed out after 200 milliseconds");
    letEnd();
    EXPECT_EQ(running.get(), GetParam().value);
    EXPECT_EQ(begun, before + 1);  // by the call alone: the code around it was not interrupted
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, InterruptOrderTest,
    testing::Values(
        Kind{.name = "Eval", .isCall = false, .logName = "Eval id", .value = "7", .stale = ""},
        Kind{.name = "FEval", .isCall = true, .logName = "FEval id: ", .value = "[7]", .stale = "[null]"}),
    [](const auto& info) { return info.param.name; });

}  // namespace
