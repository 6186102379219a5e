#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "RunningInterpreter.h"
#include "cmddistributor/CmdDistributor.h"
#include "cmddistributor/CmdRequest.h"
#include "cmddistributor/interpreterState.h"
#include "connector/interpreter/ConnectorCmdWinSink.h"
#include "fl/i18n/text.h"
#include "services/prompt/prompt.h"
#include "zvm/detail.h"

namespace {

class PromptTest : public RunningInterpreter {
protected:
    static constexpr int clients = 3;
    static constexpr int timeLimitMs = 20'000;

    /// What clients that answer at about the same time are answered with.
    std::array<EvalResponse, clients> answerAtOnce(const std::array<std::string, clients>& lines) {
        std::array<EvalResponse, clients> responses;
        std::uniform_int_distribution<int> delay(0, 600);
        for (std::size_t i = 0; i < clients; ++i) {
            inBackground([this, &response = responses[i], line = fl::i18n::to_ustring(lines[i] + "\n"),
                          wait = std::chrono::microseconds(delay(random_))] {
                std::this_thread::sleep_for(wait);
                response = eval(line, timeLimitMs);
            });
        }
        joinBackground();
        return responses;
    }

    /// What `question` says on the interpreter thread, at the prompt that is shown.
    template <class Question>
    auto onInterpreter(Question question) {
        std::packaged_task<decltype(question())()> task(std::move(question));
        const auto distributor = host_->zvm()->getCmdDistributor();
        const auto id = zvm::detail::createID();
        distributor->enqueue(id, std::make_shared<cmddistributor::PackagedTaskCmdRequest>([&] { task(); }),
                             cmddistributor::RunOptions(cmddistributor::WhenToDequeue::Prompt), nullptr);
        distributor->setReadyToExecute(id);
        return task.get_future().get();
    }
    bool isLevelOpen() {
        return onInterpreter([] {
            return services::io::CmdWinSinkHandle::activeSink(false) ==
                   connector::interpreter::ConnectorCmdWinSink::getInstance(false);
        });
    }

private:
    std::mt19937 random_{std::random_device{}()};
};

TEST_F(PromptTest, answersAnEvaluationThatAsksForInputAtOnceAndTheRestWithTheInput) {
    const EvalResponse asked = eval(u"name = input('Name? ')\nprint('Hello', name)\nname + '!'");
    EXPECT_EQ(text(asked), "Name? ");
    EXPECT_EQ(asked.promptType, 3);
    EXPECT_FALSE(asked.isError);
    const EvalResponse answered = eval(u"Ada\n");
    EXPECT_EQ(text(answered), "Hello Ada\n'Ada!'\n");
    EXPECT_EQ(answered.promptType, 0);
    EXPECT_EQ(textOf(u"name"), "'Ada'\n");
}

TEST_F(PromptTest, answersEachQuestionOfOneEvaluationInTurn) {
    EXPECT_EQ(textOf(u"import threading\ngoes = threading.Event()\n"
                     u"late = threading.Thread(target=lambda: (goes.wait(), print('late')))\nlate.start()\n"
                     u"a = input('a')\nb = input('b')\nc = input('c')\nprint(a + b + c)"),
              "a");
    EXPECT_EQ(textOf(u"1\n"), "b");
    // What is printed now is kept for the next answer.
    call(u"goes.set", {}, 0, "prompt");
    call(u"late.join", {}, 0, "prompt");
    EXPECT_EQ(textOf(u"2\n"), "late\nc");
    EXPECT_EQ(textOf(u"3\n"), "123\n");
    EXPECT_EQ(textOf(u"a + b"), "'12'\n");
}

TEST_F(PromptTest, waitsForTheRestOfALineAndTakesSeveralLinesAtOnce) {
    eval(u"line = input()\nother = input()");
    const EvalResponse partial = eval(u"Ad");
    EXPECT_EQ(partial.promptType, 3);
    EXPECT_EQ(eval(u"a\r2\n").promptType, 0);
    EXPECT_EQ(textOf(u"line + other"), "'Ada2'\n");
}

TEST_F(PromptTest, runsWhatWasTypedBeyondTheInputAsACommand) {
    eval(u"line = input()");
    EXPECT_EQ(textOf(u"Ada\nprint('typed', line)\n"), "typed Ada\n");
}

TEST_F(PromptTest, showsAnErrorOfTheRestOfTheCodeInTheEvaluationThatTyped) {
    eval(u"int(input())");
    const EvalResponse response = eval(u"x\n");
    EXPECT_TRUE(response.isError);
    EXPECT_NE(text(response).find("ValueError: invalid literal"), std::string::npos);
    EXPECT_EQ(textOf(u"1"), "1\n");
}

TEST_F(PromptTest, opensTheDebuggerAndGoesOn) {
    const EvalResponse stopped = eval(u"y = 3\nbreakpoint()\ny = y + 1\nprint('after', y)");
    EXPECT_EQ(stopped.promptType, 1);
    EXPECT_TRUE(text(stopped).ends_with("(Pdb) ")) << text(stopped);
    EXPECT_EQ(textOf(u"p y\n"), "3\n(Pdb) ");
    const EvalResponse nested = eval(u"!z = input('z? ')\n");
    EXPECT_EQ(nested.promptType, 3);
    EXPECT_EQ(eval(u"9\n").promptType, 1);
    const EvalResponse resumed = eval(u"c\n");
    EXPECT_EQ(text(resumed), "after 4\n");
    EXPECT_EQ(resumed.promptType, 0);
    eval(u"breakpoint()\nnever = 1");
    EXPECT_FALSE(eval(u"q\n").isError);
    EXPECT_EQ(textOf(u"'never' in globals()"), "False\n");
}

TEST_F(PromptTest, showsThePromptsOfKeyboardAndPause) {
    const EvalResponse keyboard =
        eval(u"import numora\ndef f():\n    local = 5\n    numora.keyboard()\nf()\nprint('back')");
    EXPECT_EQ(keyboard.promptType, 2);
    EXPECT_EQ(text(keyboard), "K>> ");
    EXPECT_EQ(textOf(u"local\n"), "5\nK>> ");
    EXPECT_EQ(textOf(u"exit()\n"), "back\n");
    EXPECT_EQ(eval(u"numora.pause()\nprint('on')").promptType, 4);
    EXPECT_EQ(textOf(u"\n"), "on\n");
}

TEST_F(PromptTest, endsInputAtEndOfTransmission) {
    eval(u"import sys\nlines = list(sys.stdin)");
    eval(u"one\ntwo\n");
    EXPECT_EQ(eval(u"\x04").promptType, 0);
    EXPECT_EQ(textOf(u"lines"), "['one\\n', 'two\\n']\n");
}

// An answer is typed or, when the prompt has gone meanwhile, refused or taken as code; nobody waits for ever,
// and nobody gets another's text.
TEST_F(PromptTest, answersEachOfManyClientsThatAnswerOnePromptWhileCallsRunThere) {
    std::atomic<bool> isOver{false};
    std::thread watching([&] {
        for (bool isAside = false; !isOver; isAside = !isAside)
            call(u"numora.workspace", {}, 1, isAside ? "ppe" : "prompt");
    });
    for (int prompt = 0; prompt < 1000 && !HasFailure(); ++prompt) {
        EXPECT_EQ(eval(u"answer = input()\nanswer", timeLimitMs).promptType, 3) << prompt;
        const std::string suffix = "-" + std::to_string(prompt);
        const std::array<std::string, clients> lines{"'a" + suffix + "'", "'b" + suffix + "'",
                                                     "'c" + suffix + "'"};
        const auto responses = answerAtOnce(lines);
        int typed = 0;
        for (std::size_t i = 0; i < clients; ++i) {
            const std::string answer = text(responses[i]);
            const bool isRefused = answer.empty() && responses[i].faults.size() == 1 &&
                                   responses[i].faults[0].message == "Request was cancelled before starting.";
            const bool isTyped = answer == '"' + lines[i] + "\"\n";
            EXPECT_TRUE(isRefused || isTyped || answer == lines[i] + '\n') << prompt << ": " << answer;
            typed += isTyped ? 1 : 0;
        }
        EXPECT_EQ(typed, 1) << prompt;
        EXPECT_FALSE(isLevelOpen()) << prompt;
    }
    isOver = true;
    watching.join();
}

TEST_F(PromptTest, keepsWhatBecomesOfAnAnswerFromTheCodeThatReads) {
    eval(
        u"import threading\n"
        u"waits, goes_on = threading.Event(), threading.Event()\n"
        u"lines = [input()]\n"
        u"while not goes_on.is_set():\n"
        u"    try:\n"
        u"        waits.set()\n"
        u"        goes_on.wait()\n"
        u"    except KeyboardInterrupt: pass\n"
        u"for i in range(2):\n"
        u"    try: lines.append(input())\n"
        u"    except Exception as error: lines.append(error)");
    inBackground([this] { EXPECT_EQ(eval(u"released\n").faults.size(), 1U); });
    ASSERT_TRUE(eventually([this] { return call(u"waits.is_set", {}, 1, "ppe") == "[true]"; }));
    interrupt();
    joinBackground();
    call(u"goes_on.set", {}, 0, "ppe");
    ASSERT_TRUE(eventually([] { return services::prompt::detail::isInCharBufferMode(); }));
    EXPECT_EQ(eval(u"2\n").promptType, 3);
    EXPECT_EQ(eval(std::u16string((1U << 20U) + 1, u'x')).faults.size(), 1U);
    EXPECT_EQ(eval(u"3\n").promptType, 0);
    EXPECT_EQ(textOf(u"lines"), "['released', '2', '3']\n");
}

TEST_F(PromptTest, hasTheStatusesOfTheEvaluationThatWaits) {
    eval(u"1 / 0");
    eval(u"if True:");
    eval(u"input()");
    EXPECT_EQ(onInterpreter(&mnGetExecutionStatus), nmutil::cmddistributor::EXECUTION_OK);
    EXPECT_EQ(onInterpreter(&mnGetCodeBlockStatus), 0);
    eval(u"\n");
}

TEST_F(PromptTest, refusesToReadOnAnotherThread) {
    EXPECT_EQ(textOf(u"import threading\n"
                     u"def read():\n"
                     u"    try: input()\n"
                     u"    except RuntimeError as error: print(error)\n"
                     u"t = threading.Thread(target=read); t.start(); t.join()"),
              "Only the interpreter's main thread can read typed input.\n");
}

}  // namespace
