#include <chrono>
#include <cstdlib>
#include <random>

#include "RunningInterpreter.h"
#include "connector/common/requests.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "support/LogRecords.h"

namespace {

constexpr const char16_t* functions =
    uR"(
import time
def endless():
    begin()
    while True: bytes(4096)
def asleep():
    begin()
    time.sleep(600)
)";

/// Interrupts at random moments: as a request is admitted, queued, begun, running, at a prompt or at its end.
/// None may be lost, and none may hit what was sent after it. NUMORA_INTERRUPT_TRIALS sets how many are
/// tried.
class InterruptTrialsTest : public RunningInterpreter {
protected:
    InterruptTrialsTest() {
        defineBegin();
        eval(functions);
    }

    /// Whether an interrupt of a request of that kind did what it is for.
    bool trial(int kind) {
        if (kind == 0) return isInterrupted(interrupted(sent(oneOf(endlessCode_)), 250));
        if (kind == 1)
            return interrupted(sent(oneOf(shortCode_)), 250) != "Error while executing eval request.";
        if (kind == 2) {  // the evaluation is answered at its prompt, which the interrupt ends
            interrupted(sent(u"input('? ')"), 250);
            return reaches(nmutil::prompt::BASE_PROMPT);
        }
        if (kind == 3) {  // what is sent after the interrupt of a prompt answers the one that comes next
            auto answered =
                sent(u"while True:\n    try: input('? '); break\n    except KeyboardInterrupt: pass");
            interruptWithin(500);
            const EvalResponse typed = eval(u"'typed'\n", 60'000);
            answered.get();
            return typed.faults.empty();
        }
        if (kind == 4)
            return isInterrupted(interrupted(begunCall(oneOf({u"endless", u"asleep"}), "default"), 100));
        auto around = sent(oneOf(endlessCode_));
        pauseUpTo(50);
        const bool isWithin = isInterrupted(interrupted(begunCall(u"endless", "ppe"), 100));
        return isInterrupted(around.get()) && isWithin;
    }

    void interruptNow() {
        deliver(std::make_unique<connector::interpreter::v1::Interrupt>("interrupt"), arrival()).get();
    }
    int upTo(int most) { return std::uniform_int_distribution<int>(0, most)(random_); }

    const unsigned seed_ = std::random_device()();

private:
    using Codes = std::vector<std::u16string>;

    static ContextPtr arrival() {
        auto context = std::make_shared<connector::common::ContextState>();
        connector::common::stampArrival(*context);
        return context;
    }
    std::future<std::string> sent(const std::u16string& code) {
        return std::async(std::launch::async,
                          [this, code, context = arrival()] { return answer(eval(code, 0, 0, 0, context)); });
    }
    std::future<std::string> begunCall(const std::u16string& function, const std::string& mode) {
        return start([this, function, mode] { return call(function, {}, 0, mode); });
    }
    void interruptWithin(int microseconds) {
        pauseUpTo(microseconds);
        interruptNow();
    }
    std::string interrupted(std::future<std::string> answered, int withinMicroseconds) {
        interruptWithin(withinMicroseconds);
        return answered.get();
    }
    void pauseUpTo(int microseconds) {
        using Clock = std::chrono::steady_clock;
        const auto end = Clock::now() + std::chrono::nanoseconds(upTo(microseconds * 1000));
        while (Clock::now() < end) continue;
    }
    std::u16string oneOf(const Codes& codes) {
        return codes.at(static_cast<std::size_t>(upTo(static_cast<int>(codes.size()) - 1)));
    }
    /// Whether the answer of something endless shows that its interrupt reached it.
    static bool isInterrupted(const std::string& answer) {
        return answer.empty() || answer.ends_with("KeyboardInterrupt\n") || answer == "KeyboardInterrupt" ||
               answer == "Request was cancelled before starting.";
    }

    // Python drops what is raised in a finalizer.
    const Codes endlessCode_ = {
        endlessLoop,
        u"time.sleep(600)",
        u"while True: sum(range(20_000)); bytes(4096)",
        u"def f(): return bytes(4096)\nwhile True: f()",
        u"import os\nwhile True: os.stat('.')",
        u"class Finalized:\n    def __del__(self): bytes(4096)\nwhile True: Finalized()"};
    const Codes shortCode_ = {u"pass", u"x = 6 * 7\nx", u"x = sum(range(1000))", u"print('a')\nprint('b')"};
    std::mt19937 random_{seed_};
};

TEST_F(InterruptTrialsTest, losesNoneAndHitsNothingThatIsSentAfterwards) {
    const LogRecords log(LogRecords::Severity::Error);
    const char* const wanted = std::getenv("NUMORA_INTERRUPT_TRIALS");
    const int trials = wanted != nullptr ? std::atoi(wanted) : 500;
    std::string failures;  // shown at the end: what the process prints meanwhile is output of the code
    for (int i = 0; i < trials; ++i) {
        const int kind = upTo(5);
        if (!trial(kind)) {
            failures += "lost, kind " + std::to_string(kind) + '\n';
            interruptNow();
        }
        const EvalResponse next = eval(u"'next'", 60'000);
        if (text(next) == "'next'\n") continue;
        failures += "hit after kind " + std::to_string(kind) + ": " + text(next) + '\n';
    }
    EXPECT_EQ(failures, "") << trials << " trials, seed " << seed_;
}

}  // namespace
