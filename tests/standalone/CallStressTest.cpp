#include <array>
#include <random>

#include "RunningInterpreter.h"
#include "fl/i18n/text.h"
#include "support/LogRecords.h"

namespace {

/// Many clients at a time, each with a fixed number of requests of every kind, all of which are checked.
class CallStressTest : public RunningInterpreter {
protected:
    enum Kind { Evaluate, CallAside, CallInTurn, CallWhenIdle, Fail, InterruptAll };
    static constexpr std::size_t kinds = 6;

    /// Makes a request. Returns what is wrong with its answer.
    std::string request(Kind kind, const std::string& number) {
        static constexpr std::array modes{"", "ppe", "default", "idle", "ppe"};
        if (kind == Evaluate) return evaluate(number);
        if (kind == InterruptAll) {
            interrupt();
            return checked(kind, true, "", "");
        }
        const std::string answer =
            call(kind == Fail ? u"fail" : u"echo", {fl::i18n::to_ustring(number)}, 1, modes.at(kind));
        return checked(kind, isInterruption(answer) || answer == "KeyboardInterrupt",
                       kind == Fail ? "ValueError: " + number : "[" + number + "]", answer);
    }

    std::array<std::atomic<int>, kinds> completed_{};

private:
    // The code takes about two milliseconds, in which calls run inside it.
    std::string evaluate(const std::string& number) {
        const std::string printed = "first " + number + "\nsecond " + number + '\n';
        const EvalResponse response = eval(fl::i18n::to_ustring(
            "print('first', " + number + ")\ntime.sleep(0.002)\nprint('second', " + number + ")"));
        const std::string output = text(response);
        // Or what it had printed when the interrupt came, and the traceback.
        const bool isInterrupted = response.faults.empty()
                                       ? response.isError && output.ends_with("KeyboardInterrupt\n") &&
                                             printed.starts_with(output.substr(0, output.find("Traceback")))
                                       : isInterruption(answer(response)) && output.empty();
        return checked(Evaluate, isInterrupted, printed, answer(response));
    }
    std::string checked(Kind kind, bool isInterrupted, const std::string& expected,
                        const std::string& answer) {
        if (answer == expected) ++completed_[kind];
        return answer == expected || isInterrupted ? ""
                                                   : "expected: " + expected + "\nanswered: " + answer + '\n';
    }
    static bool isInterruption(const std::string& fault) {
        return fault == "Request was cancelled before starting." ||
               fault == "Error while executing eval request.";
    }
};

TEST_F(CallStressTest, answersEveryRequestWithItsOwnResultWhileOthersAreInterrupted) {
    constexpr int clients = 8;
    eval(
        u"import time\ndef echo(n):\n    print('call', n)\n    return n\n"
        u"def fail(n):\n    raise ValueError(n)");
    const LogRecords log(LogRecords::Severity::Error);  // not the hundreds of warnings about interrupted ones
    // Shown at the end: what a test says while code runs would become output of that code.
    std::array<std::string, clients> wrong;
    onThreads(clients, [&](int client) {
        std::mt19937 random(static_cast<unsigned>(client));
        // Interrupts are rare enough for most of the others to end by themselves.
        std::discrete_distribution<int> choice({6, 6, 3, 3, 2, 1});
        for (int i = 0; i < 400; ++i)
            wrong.at(static_cast<std::size_t>(client)) +=
                request(static_cast<Kind>(choice(random)), std::to_string(client * 1'000'000 + i));
    });
    for (const std::string& answers : wrong) EXPECT_EQ(answers, "");
    for (std::size_t i = 0; i < kinds; ++i) EXPECT_GT(completed_[i], 0) << "kind " << i;
    EXPECT_EQ(log.all(), "");
    EXPECT_EQ(textOf(u"6 * 7"), "42\n");
    EXPECT_EQ(call(u"echo", {u"1"}, 1, "idle"), "[1]");
}

}  // namespace
