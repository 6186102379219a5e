#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <utility>

#include "RunningInterpreter.h"
#include "connector/common/requestArrival.h"
#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/EvalResponse.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "fl/i18n/text.h"
#include "services/prompt/prompt.h"
#include "support/LogRecords.h"

namespace v1 = connector::interpreter::v1;

namespace {

std::atomic<int> begun{0};
void begin() { ++begun; }

constexpr const char16_t* functions =
    uR"(
def endless():
    begin()
    while True: bytes(4096)
def asleep():
    begin()
    time.sleep(600)
)";

using Context = std::shared_ptr<connector::common::ContextState>;

Context arrival() {
    auto context = std::make_shared<connector::common::ContextState>();
    connector::common::stampArrival(*context);
    return context;
}

/// Interrupts at random moments: as a request is admitted, queued, begun, running, at a prompt or at its end.
/// None may be lost, and none may hit what was sent after it. NUMORA_INTERRUPT_TRIALS sets how many are
/// tried.
class InterruptTrialsTest : public RunningInterpreter {
protected:
    InterruptTrialsTest() {
        const auto address = std::to_string(reinterpret_cast<std::uintptr_t>(&begin));
        eval(u"import ctypes, time\nbegin = ctypes.PYFUNCTYPE(None)(" + fl::i18n::to_ustring(address) + u")" +
             functions);
    }

    void pauseUpTo(int microseconds) {
        const auto until = Clock::now() + std::chrono::nanoseconds(std::uniform_int_distribution<int>(
                                              0, microseconds * 1000)(random_));
        while (Clock::now() < until) continue;
    }

    std::future<std::string> start(const std::u16string& code) {
        return std::async(std::launch::async, [this, code, context = arrival()]() mutable {
            auto request = std::make_unique<v1::Eval>("trial");
            request->mcode = code;
            const auto message = deliver(std::move(request), std::move(context)).get();
            const auto& response = dynamic_cast<const v1::EvalResponse&>(*message);
            return response.faults.empty() ? fl::i18n::to_string(response.responseStr)
                                           : response.faults.front().message;
        });
    }
    /// Starts a call, and returns when its code has begun.
    std::future<std::string> startCall(const std::u16string& function, const std::string& mode) {
        const int before = begun;
        auto answered =
            std::async(std::launch::async, [this, function, mode] { return call(function, {}, 0, mode); });
        EXPECT_TRUE(eventually([before] { return begun > before; }));
        return answered;
    }
    void interruptNow() { deliver(std::make_unique<v1::Interrupt>("interrupt"), arrival()).get(); }

    /// Whether the answer of something endless shows that its interrupt reached it.
    static bool isInterrupted(const std::string& answer) {
        return answer.empty() || answer.ends_with("KeyboardInterrupt\n") || answer == "KeyboardInterrupt" ||
               answer == "Request was cancelled before starting.";
    }

    bool trial() {
        static const std::array<std::u16string, 5> endlessCode = {
            endlessLoop, u"time.sleep(600)", u"while True: sum(range(20_000)); bytes(4096)",
            u"def f(): return bytes(4096)\nwhile True: f()",
            // Python drops what is raised in a finalizer.
            u"class Finalized:\n    def __del__(self): bytes(4096)\nwhile True: Finalized()"};
        static const std::array<std::u16string, 4> shortCode = {
            u"pass", u"x = 6 * 7\nx", u"x = sum(range(1000))", u"print('a')\nprint('b')"};
        const auto pick = [this](const auto& of) {
            return of[std::uniform_int_distribution<std::size_t>(0, of.size() - 1)(random_)];
        };
        kind_ = std::uniform_int_distribution<int>(0, 6)(random_);
        switch (kind_) {
            case 0:
            case 1: {
                auto answered = start(pick(endlessCode));
                pauseUpTo(250);
                interruptNow();
                return isInterrupted(answered.get());
            }
            case 2: {
                auto answered = start(pick(shortCode));
                pauseUpTo(250);
                interruptNow();
                return answered.get() != "Error while executing eval request.";
            }
            case 3: {  // the evaluation is answered at its prompt, which the interrupt ends
                auto answered = start(u"input('? ')");
                pauseUpTo(250);
                interruptNow();
                answered.get();
                return eventually(
                    [] { return services::prompt::getInputRequester() == nmutil::prompt::BASE_PROMPT; });
            }
            case 4: {
                auto answered =
                    startCall(pick(std::array<std::u16string, 2>{u"endless", u"asleep"}), "default");
                pauseUpTo(100);
                interruptNow();
                return isInterrupted(answered.get());
            }
            case 5: {  // an answer that is sent after the interrupt of a prompt finds the one that comes next
                auto answered = start(
                    u"while True:\n    try:\n        input('? ')\n        break\n"
                    u"    except KeyboardInterrupt: pass");
                pauseUpTo(500);
                interruptNow();
                const EvalResponse typed = eval(u"'typed'\n", 60'000);
                answered.get();
                return typed.faults.empty();
            }
            default: {  // a call inside running code
                auto around = start(pick(endlessCode));
                pauseUpTo(50);
                auto within = startCall(u"endless", "ppe");
                pauseUpTo(100);
                interruptNow();
                const bool isWithin = isInterrupted(within.get());
                return isInterrupted(around.get()) && isWithin;
            }
        }
    }

    using Clock = std::chrono::steady_clock;
    int kind_ = 0;
    const unsigned seed_ = std::random_device()();
    std::mt19937 random_{seed_};
};

TEST_F(InterruptTrialsTest, losesNoneAndHitsNothingThatIsSentAfterwards) {
    const LogRecords log(LogRecords::Severity::Error);
    const char* const wanted = std::getenv("NUMORA_INTERRUPT_TRIALS");
    const int trials = wanted != nullptr ? std::atoi(wanted) : 500;
    std::string failures;  // shown at the end: what the process prints meanwhile is output of the code
    for (int i = 0; i < trials; ++i) {
        if (!trial()) {
            failures += "lost, kind " + std::to_string(kind_) + '\n';
            interruptNow();
        }
        const EvalResponse next = eval(u"'next'", 60'000);
        if (text(next) == "'next'\n") continue;
        failures += "hit after kind " + std::to_string(kind_) + ": " + text(next) + '\n';
    }
    EXPECT_EQ(failures, "") << trials << " trials, seed " << seed_;
}

}  // namespace
