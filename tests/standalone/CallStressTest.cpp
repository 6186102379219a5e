#include <array>
#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "RunningInterpreter.h"
#include "connector/ThreadSafety.h"
#include "fl/i18n/text.h"
#include "support/LogRecords.h"

namespace {

/// Many clients at a time, each with a fixed number of requests of every kind, all of which are checked.
class CallStressTest : public RunningInterpreter {
protected:
    enum Operation { Evaluate, CallAside, CallInTurn, CallWhenIdle, Fail, InterruptAll };
    static constexpr std::size_t operations = 6;
    static constexpr int clients = 8;
    static constexpr int requestsOfEach = 400;

    CallStressTest() {
        eval(
            u"import time\n"
            u"def echo(n):\n    print('call', n)\n    return n\n"
            u"def fail(n):\n    raise ValueError(n)");
    }

    void runClient(unsigned client) {
        std::mt19937 random(client);
        // Interrupts are rare enough for most of the others to end by themselves.
        std::discrete_distribution<std::size_t> choice({6, 6, 3, 3, 2, 1});
        for (unsigned i = 0; i < requestsOfEach; ++i) {
            request(static_cast<Operation>(choice(random)), client * 1'000'000 + i);
            ++answered_;
        }
    }

    /// Answers that belong to no request as it was sent. What a test says of them while code runs would
    /// become output of that code.
    std::string wrongAnswers() const EXCLUDES(mutex_) {
        connector::MutexLock lock(mutex_);
        return wrongAnswers_;
    }

    std::atomic<int> answered_{0};
    std::array<std::atomic<int>, operations> completed_{};

private:
    void request(Operation operation, unsigned number) {
        const std::string text = std::to_string(number);
        const std::vector<std::u16string> argument{fl::i18n::to_ustring(text)};
        switch (operation) {
            case Evaluate:
                return checkOutput(text);
            case CallAside:
                return checkResult(operation, call(u"echo", argument, 1, "ppe"), "[" + text + "]");
            case CallInTurn:
                return checkResult(operation, call(u"echo", argument, 1, "default"), "[" + text + "]");
            case CallWhenIdle:
                return checkResult(operation, call(u"echo", argument, 1, "idle"), "[" + text + "]");
            case Fail:
                return checkResult(operation, call(u"fail", argument, 1, "ppe"), "ValueError: " + text);
            case InterruptAll:
                interrupt();
                ++completed_[operation];
        }
    }

    void checkResult(Operation operation, const std::string& answer, const std::string& expected) {
        if (answer == expected) {
            ++completed_[operation];
        } else {
            check(isInterruption(answer) || answer == "KeyboardInterrupt", expected, answer);
        }
    }

    // The code takes about two milliseconds, in which calls run inside it.
    void checkOutput(const std::string& number) {
        const std::string first = "first " + number + '\n';
        const std::string second = "second " + number + '\n';
        const auto code =
            "print('first', " + number + ")\ntime.sleep(0.002)\nprint('second', " + number + ")";
        const EvalResponse response = eval(fl::i18n::to_ustring(code));
        const std::string output = text(response);
        if (!response.faults.empty()) {
            const std::string& fault = response.faults.front().message;
            check(isInterruption(fault) && output.empty(), first + second, output + fault);
        } else if (!response.isError) {
            check(output == first + second, first + second, output);
            ++completed_[Evaluate];
        } else {
            // What it had printed when the interrupt came, and the traceback.
            const std::string printed = output.substr(0, output.find("Traceback"));
            check(output.ends_with("KeyboardInterrupt\n") && (first + second).starts_with(printed),
                  first + second, output);
        }
    }

    void check(bool isRight, const std::string& expected, const std::string& answer) EXCLUDES(mutex_) {
        if (isRight) return;
        connector::MutexLock lock(mutex_);
        wrongAnswers_ += "expected: " + expected + "\nanswered: " + answer + '\n';
    }

    static bool isInterruption(const std::string& fault) {
        return fault == "Request was cancelled before starting." ||
               fault == "Error while executing eval request.";
    }

    mutable connector::Mutex mutex_;
    std::string wrongAnswers_ GUARDED_BY(mutex_);
};

TEST_F(CallStressTest, answersEveryRequestWithItsOwnResultWhileOthersAreInterrupted) {
    const LogRecords log(LogRecords::Severity::Error);  // not the hundreds of warnings about interrupted ones
    std::vector<std::thread> threads;
    for (unsigned client = 1; client <= clients; ++client) {
        threads.emplace_back([this, client] { runClient(client); });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrongAnswers(), "");
    EXPECT_EQ(answered_, clients * requestsOfEach);
    for (std::size_t i = 0; i < operations; ++i) EXPECT_GT(completed_[i], 0) << "operation " << i;
    EXPECT_EQ(log.all(), "");
    EXPECT_EQ(textOf(u"6 * 7"), "42\n");
    EXPECT_EQ(call(u"echo", {u"1"}, 1, "idle"), "[1]");
}

}  // namespace
