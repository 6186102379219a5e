#include "RunningInterpreter.h"

namespace {

using EvaluationTest = RunningInterpreter;

TEST_F(EvaluationTest, displaysTheLastExpressionOfABlockAndNothingElse) {
    expectEval(u"1; 2; 'three'", "'three'\n");
    expectEval(u"None", "");
    expectEval(u"# only a comment", "");
    expectEval(u"for i in range(2):\n    i\n    print(i)", "0\n1\n");
    expectEval(u"'\\u00e9\\u6f22\\U0001F600'", "'\u00e9\u6f22\U0001F600'\n");
    expectEval(u"_ = 3; 4", "4\n");
    expectEval(u"('\u00e4;',\r\n2) \\\n ;  # ;", "");
    expectEval(u"'; ' # ;", "'; '\n");
}

TEST_F(EvaluationTest, awaitsOutsideOfFunctionsInALoopThatLivesOn) {
    eval(
        u"import asyncio\nasync def fails(): await asyncio.sleep(0); 1 / 0\n"
        u"async def begins(): return asyncio.create_task(asyncio.sleep(0, 'task'))\ntask = await begins()");
    expectEval(u"asyncio.run(asyncio.sleep(0, 'own loop'))", "'own loop'\n");
    expectEval(u"x = await asyncio.sleep(0, 2)\n[x, await task]", "[2, 'task']\n");
    EXPECT_EQ(
        textOf(u"await fails()"),
        "Traceback (most recent call last):\n  File \"<eval 4>\", line 1, in <module>\n    await fails()\n"
        "  File \"<eval 1>\", line 2, in fails\n    async def fails(): await asyncio.sleep(0); 1 / 0\n"
        "                                               ~~^~~\n"
        "ZeroDivisionError: division by zero\n");
    expectEval(u"task = asyncio.create_task(asyncio.sleep(0, 3))\nawait task", "3\n");
}

TEST_F(EvaluationTest, keepsVariablesFunctionsAndFutureImportsBetweenEvaluations) {
    eval(u"from __future__ import annotations\ncount = 1\ndef bump():\n    global count\n    count += 1");
    eval(u"bump()\ndef annotated(x: not_defined): pass");
    expectEval(u"count", "2\n");
    expectEval(u"annotated.__annotations__", "{'x': 'not_defined'}\n");
    expectEval(u"import inspect; print(inspect.getsource(bump))",
               "def bump():\n    global count\n    count += 1\n\n");
}

TEST_F(EvaluationTest, endsWithTheNameThatMayHaveBeenMeant) {
    const std::vector<std::pair<std::u16string, std::string>> names = {{u"pritn(1)", "print"},
                                                                       {u"[].apend(1)", "append"},
                                                                       {u"from math import sqroot", "sqrt"},
                                                                       {u"import jsn", "json"}};
    for (const auto& [code, name] : names)
        EXPECT_TRUE(textOf(code).ends_with("\nDid you mean: " + name + " ?")) << name;
    EXPECT_EQ(textOf(u"zzqqxxyy").find("Did you mean"), std::string::npos);
}

TEST_F(EvaluationTest, runsNothingOfCodeThatIsWrongOrEndsInsideAnOpenBlock) {
    const EvalResponse wrong = eval(u"print('never')\nx = = 2");
    EXPECT_TRUE(wrong.isError);
    EXPECT_TRUE(text(wrong).starts_with("  File \"<eval 1>\", line 2\n")) << text(wrong);
    EXPECT_NE(text(wrong).find("SyntaxError: invalid syntax"), std::string::npos);
    for (const std::u16string code :
         {u"for i in range(3):", u"print('no'); x = (1,", u"def f():\n    '''open"})
        expectEval(code, "", 4);
    expectEval(u"1", "1\n");
}

TEST_F(EvaluationTest, endsTheEvaluationAndNotTheProcessOnExit) {
    expectEval(u"import sys, os; sys.exit()", "");
    expectEval(u"exit(0)", "");
    EXPECT_EQ(textOf(u"sys.exit('gone')"), "SystemExit: gone\n");
    EXPECT_TRUE(eval(u"sys.exit(3)").isError);
    EXPECT_NE(
        textOf(u"if os.fork() == 0: print('child')\nelse: print('parent', os.wait()[1])").find("parent 0"),
        std::string::npos);
}

TEST_F(EvaluationTest, makesTheWindowSizeOfTheRequestVisible) {
    const std::u16string size = u"import shutil, numpy; print(*shutil.get_terminal_size(), numpy.arange(9))";
    EXPECT_EQ(text(eval(size, 0, 12, 5)), "12 5 [0 1 2 3 4\n 5 6 7 8]\n");
    EXPECT_EQ(call(u"shutil.get_terminal_size"), "[[80,24]]");
    EXPECT_EQ(textOf(size), "80 24 [0 1 2 3 4 5 6 7 8]\n");
}

}  // namespace
