#include <string>

#include "RunningInterpreter.h"

namespace {

class PromptTest : public RunningInterpreter {};

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
    EXPECT_EQ(textOf(u"a = input('a')\nb = input('b')\nc = input('c')\nprint(a + b + c)"), "a");
    EXPECT_EQ(textOf(u"1\n"), "b");
    EXPECT_EQ(textOf(u"2\n"), "c");
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

TEST_F(PromptTest, refusesToReadOnAnotherThread) {
    EXPECT_EQ(textOf(u"import threading\n"
                     u"def read():\n"
                     u"    try: input()\n"
                     u"    except RuntimeError as error: print(error)\n"
                     u"t = threading.Thread(target=read); t.start(); t.join()"),
              "Only the interpreter's main thread can read typed input.\n");
}

}  // namespace
