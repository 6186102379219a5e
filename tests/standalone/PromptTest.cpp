#include <array>
#include <random>

#include "RunningInterpreter.h"
#include "connector/interpreter/ConnectorCmdWinSink.h"
#include "fl/i18n/text.h"
#include "interpreter/IInterpreter.h"
#include "services/window.h"

namespace {

using PromptTest = RunningInterpreter;

TEST_F(PromptTest, answersEachQuestionOfOneEvaluationInTurn) {
    expectEval(
        u"import threading\ngoes = threading.Event()\n"
        u"late = threading.Thread(target=lambda: (goes.wait(), print('late')))\nlate.start()\n"
        u"a = input('a')\nb = input('b')\nc = input('c')\nprint(a, b)\nc",
        "a", 3);
    expectEval(u"1\n", "b", 3);
    // What is printed now is kept for the next answer.
    call(u"goes.set", {}, 0, "prompt");
    call(u"late.join", {}, 0, "prompt");
    expectEval(u"2\n", "late\nc", 3);
    expectEval(u"3\n", "1 2\n'3'\n");
}

TEST_F(PromptTest, takesPartsOfLinesSeveralLinesAndTheEndOfInputAndRunsTheRestAsACommand) {
    expectEval(u"line = input()\nother = input()", "", 3);
    expectEval(u"Ad", "", 3);
    expectEval(u"a\r2\nprint('typed', line + other)\n", "typed Ada2\n");
    expectEval(u"import sys\nlines = list(sys.stdin)", "", 3);
    expectEval(u"one\ntwo\n", "", 3);
    expectEval(u"\x04", "");
    expectEval(u"lines", "['one\\n', 'two\\n']\n");
}

TEST_F(PromptTest, showsAnErrorOfTheRestOfTheCodeInTheEvaluationThatTyped) {
    expectEval(u"int(input())", "", 3);
    const EvalResponse response = eval(u"x\n");
    EXPECT_TRUE(response.isError);
    EXPECT_NE(text(response).find("ValueError: invalid literal"), std::string::npos);
}

TEST_F(PromptTest, opensTheDebuggerAndTheKeyboardAndGoesOn) {
    const EvalResponse stopped = eval(u"y = 3\nbreakpoint()\ny = y + 1\nprint('after', y)");
    EXPECT_EQ(stopped.promptType, 1);
    EXPECT_TRUE(text(stopped).ends_with("(Pdb) ")) << text(stopped);
    expectEval(u"p y\n", "3\n(Pdb) ", 1);
    expectEval(u"!z = input('z? ')\n", "z? ", 3);
    expectEval(u"9\n", "(Pdb) ", 1);
    expectEval(u"c\n", "after 4\n");
    eval(u"breakpoint()\nnever = 1");
    EXPECT_FALSE(eval(u"q\n").isError);
    expectEval(u"'never' in globals()", "False\n");

    expectEval(u"import numora\ndef f():\n    local = 5\n    numora.keyboard()\nf()\nprint('back')", "K>> ",
               2);
    expectEval(u"local\n", "5\nK>> ", 2);
    expectEval(u"exit()\n", "back\n");
}

// An answer is typed or, when the prompt has gone meanwhile, refused or taken as code; nobody waits for ever,
// and nobody gets another's text.
TEST_F(PromptTest, answersEachOfManyClientsThatAnswerOnePromptWhileCallsRunThere) {
    constexpr std::size_t clients = 3;
    constexpr int timeLimitMs = 20'000;
    std::mt19937 random{std::random_device{}()};
    std::atomic<bool> isOver{false};
    std::jthread watching([&] {
        for (bool isAside = false; !isOver; isAside = !isAside)
            call(u"numora.workspace", {}, 1, isAside ? "ppe" : "prompt");
    });
    for (int prompt = 0; prompt < 1000 && !HasFailure(); ++prompt) {
        EXPECT_EQ(eval(u"answer = input()\nanswer", timeLimitMs).promptType, 3) << prompt;
        std::array<int, clients> delays{};
        for (int& delay : delays) delay = std::uniform_int_distribution<int>(0, 600)(random);
        std::atomic<int> typed{0};
        onThreads(clients, [&](int client) {
            const std::string line = "'" + std::to_string(client) + "-" + std::to_string(prompt) + "'";
            std::this_thread::sleep_for(std::chrono::microseconds(delays[static_cast<std::size_t>(client)]));
            const std::string shown = answer(eval(fl::i18n::to_ustring(line + "\n"), timeLimitMs));
            if (shown == '"' + line + "\"\n") {
                ++typed;
            } else if (shown != line + '\n' && shown != "Request was cancelled before starting.") {
                ADD_FAILURE() << prompt << ": " << shown;
            }
        });
        EXPECT_EQ(typed, 1) << prompt;
        const bool isLevelOpen = onInterpreter([] {
            return services::io::CmdWinSinkHandle::activeSink(false) ==
                   connector::interpreter::ConnectorCmdWinSink::getInstance(false);
        });
        EXPECT_FALSE(isLevelOpen) << prompt;
    }
    isOver = true;
}

TEST_F(PromptTest, keepsWhatBecomesOfAnAnswerFromTheCodeThatReads) {
    defineBegin();
    eval(
        u"import threading\ngoes_on = threading.Event()\nlines = [input()]\n"
        u"while not goes_on.is_set():\n"
        u"    try: begin(); goes_on.wait()\n"
        u"    except KeyboardInterrupt: pass\n"
        u"for i in range(2):\n"
        u"    try: lines.append(input())\n"
        u"    except Exception as error: lines.append(error)");
    auto released = start([this] { return eval(u"released\n"); });
    interrupt();
    EXPECT_EQ(released.get().faults.size(), 1U);
    call(u"goes_on.set", {}, 0, "ppe");
    ASSERT_TRUE(reaches(nmutil::prompt::INPUT_PROMPT));
    expectEval(u"2\n", "", 3);
    EXPECT_EQ(eval(std::u16string((1U << 20U) + 1, u'x')).faults.size(), 1U);
    expectEval(u"3\n", "");
    expectEval(u"lines", "['released', '2', '3']\n");
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
