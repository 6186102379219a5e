#include <string>
#include <vector>

#include "RunningInterpreter.h"

namespace {

class EvaluationTest : public RunningInterpreter {};

TEST_F(EvaluationTest, displaysTheLastExpressionOfABlockAndNothingElse) {
    struct Case {
        std::u16string code;
        std::string output;
    };
    const std::vector<Case> cases = {
        {u"1 + 1", "2\n"},
        {u"1; 2; 'three'", "'three'\n"},
        {u"x = 5\nx", "5\n"},
        {u"x = 6", ""},
        {u"None", ""},
        {u"", ""},
        {u"# only a comment", ""},
        {u"for i in range(2):\n    i\n    print(i)", "0\n1\n"},
        {u"def f():\n    return 7\n\nf()", "7\n"},
        {u"'\\u00e9\\u6f22\\U0001F600'", "'\u00e9\u6f22\U0001F600'\n"},
        {u"print('a', end='')\nprint('b')", "ab\n"},
        {u"_ = 3; 4", "4\n"},
    };
    for (const Case& row : cases) {
        const EvalResponse response = eval(row.code);
        EXPECT_EQ(text(response), row.output);
        EXPECT_FALSE(response.isError);
        EXPECT_EQ(response.promptType, 0);
        EXPECT_TRUE(response.faults.empty());
    }
}

TEST_F(EvaluationTest, keepsVariablesFunctionsAndFutureImportsBetweenEvaluations) {
    eval(u"from __future__ import annotations\ncount = 1\ndef bump():\n    global count\n    count += 1");
    eval(u"bump()");
    EXPECT_EQ(textOf(u"count"), "2\n");
    eval(u"def annotated(x: not_defined): pass");
    EXPECT_EQ(textOf(u"annotated.__annotations__"), "{'x': 'not_defined'}\n");
    EXPECT_EQ(textOf(u"import inspect; print(inspect.getsource(bump))"),
              "def bump():\n    global count\n    count += 1\n\n");
}

TEST_F(EvaluationTest, showsATracebackOnceWithItsSourceLines) {
    eval(u"def inner():\n    raise ValueError('deep')");
    const EvalResponse response = eval(u"print('before')\ninner()\nprint('after')");
    EXPECT_TRUE(response.isError);
    EXPECT_EQ(
        text(response),
        "before\nTraceback (most recent call last):\n  File \"<eval 2>\", line 2, in <module>\n    inner()\n"
        "  File \"<eval 1>\", line 2, in inner\n    raise ValueError('deep')\nValueError: deep\n");
    EXPECT_FALSE(eval(u"1").isError);
}

TEST_F(EvaluationTest, reportsSyntaxErrorsAndRunsNothingOfTheCode) {
    const EvalResponse response = eval(u"print('never')\nx = = 2");
    EXPECT_TRUE(response.isError);
    EXPECT_EQ(text(response).find("never\n"), std::string::npos);
    EXPECT_NE(text(response).find("SyntaxError: invalid syntax"), std::string::npos);
}

TEST_F(EvaluationTest, endsWithTheNameThatMayHaveBeenMeant) {
    const std::vector<std::pair<std::u16string, std::string>> cases = {
        {u"pritn(1)", "print"},
        {u"[].apend(1)", "append"},
        {u"from math import sqroot", "sqrt"},
        {u"import jsn", "json"},
    };
    for (const auto& [code, name] : cases) {
        const EvalResponse response = eval(code);
        EXPECT_TRUE(response.isError);
        EXPECT_TRUE(text(response).ends_with("\nDid you mean: " + name + " ?")) << text(response);
    }
    EXPECT_EQ(textOf(u"zzqqxxyy").find("Did you mean"), std::string::npos);
}

TEST_F(EvaluationTest, doesNotRunCodeThatEndsInsideAnOpenBlock) {
    for (const std::u16string code :
         {u"for i in range(3):", u"print('no'); x = (1,", u"def f():\n    '''open"}) {
        const EvalResponse response = eval(code);
        EXPECT_FALSE(response.isError);
        EXPECT_EQ(response.promptType, 4);
        EXPECT_EQ(text(response), "");
    }
    EXPECT_EQ(eval(u"1").promptType, 0);
}

TEST_F(EvaluationTest, endsTheEvaluationAndNotTheProcessOnExit) {
    struct Case {
        std::u16string code;
        bool isError;
        std::string output;
    };
    const std::vector<Case> cases = {
        {u"import sys; sys.exit()", false, ""},
        {u"exit(0)", false, ""},
        {u"sys.exit(3)", true, "SystemExit: 3\n"},
        {u"sys.exit('gone')", true, "SystemExit: gone\n"},
        {u"import os\nif os.fork() == 0: print('child')\nelse: print('parent', os.wait()[1])", false,
         "parent 0\nchild\n"},
    };
    for (const Case& row : cases) {
        const EvalResponse response = eval(row.code);
        EXPECT_EQ(response.isError, row.isError);
        if (row.output.find("child") == std::string::npos) {
            EXPECT_EQ(text(response), row.output);
        } else {
            EXPECT_NE(text(response).find("parent 0"), std::string::npos) << text(response);
        }
    }
    EXPECT_EQ(textOf(u"1"), "1\n");
}

TEST_F(EvaluationTest, makesTheWindowSizeOfTheRequestVisible) {
    const std::u16string size = u"import shutil; tuple(shutil.get_terminal_size())";
    EXPECT_EQ(text(eval(size, 0, 111, 22)), "(111, 22)\n");
    EXPECT_EQ(call(u"shutil.get_terminal_size"), "[[80,24]]");
    EXPECT_EQ(text(eval(size)), "(80, 24)\n");
    EXPECT_EQ(text(eval(u"import numpy\nprint(numpy.arange(9))", 0, 12, 5)), "[0 1 2 3 4\n 5 6 7 8]\n");
    EXPECT_EQ(text(eval(u"print(numpy.arange(9))", 0, 60, 5)), "[0 1 2 3 4 5 6 7 8]\n");
}

TEST_F(EvaluationTest, leavesPythonsOwnThreadsRunningWhileItIsIdle) {
    eval(u"import threading\ndone = threading.Event()\nthreading.Timer(0.01, done.set).start()");
    EXPECT_EQ(textOf(u"done.wait(60)"), "True\n");
}

}  // namespace
