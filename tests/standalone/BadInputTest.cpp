#include "RunningInterpreter.h"

namespace {

class BadInputTest : public RunningInterpreter {
protected:
    void expectFailure(const std::u16string& code, const std::string& reason, int timeoutMs = 0) {
        const EvalResponse response = eval(code, timeoutMs);
        EXPECT_TRUE(response.isError);
        EXPECT_NE(text(response).find(reason), std::string::npos) << text(response).substr(0, 500);
        EXPECT_EQ(textOf(u"1"), "1\n");
    }
};

TEST_F(BadInputTest, answersCodeThatCannotBeTextOfAProgramWithAnError) {
    expectFailure(std::u16string(u"1\0", 2) + u"2", "null character");
    expectFailure(std::u16string(u"x = '") + char16_t(0xD800) + u"'", "surrogates not allowed");
    expectFailure(std::u16string(64U << 20U, u'#'), "at most 16777216 are accepted");
    expectFailure(std::u16string(200'000, u'('), "too many nested parentheses");
}

TEST_F(BadInputTest, survivesErrorsThatCannotBeDescribed) {
    eval(
        u"class Bad(Exception):\n    def __str__(self): raise RuntimeError('no text')\n"
        u"    def __repr__(self): raise RuntimeError('no text')");
    expectFailure(u"raise Bad()", "Bad");
    expectFailure(u"def deep(): deep()\ndeep()", "RecursionError");
    expectFailure(std::u16string(u"class Endless(Exception):\n    def __str__(self):\n        ") +
                      endlessLoop + u"\nraise Endless()",
                  "longer than 0.5 seconds", 500);
    EXPECT_TRUE(eval(u"import sys\nsys.stdout = None\n1/0").isError);
    expectEval(u"sys.stdout = sys.__stdout__\n1", "1\n");
}

TEST_F(BadInputTest, survivesWhatCodeDoesToItsSurroundings) {
    eval(u"import signal, sys\nx = 5\ndel sys.modules['__main__']");
    expectEval(u"x", "5\n");
    eval(u"signal.signal(signal.SIGINT, signal.SIG_DFL)");
    EXPECT_TRUE(eval(endlessLoop, 300).isError);
    eval(u"import os; os.close(1)");
    EXPECT_EQ(textOf(u"print('still here')"), "still here\n");
    EXPECT_EQ(eval(u"breakpoint()\ny = 1").promptType, 1);
    for (int i = 0; i < 2; ++i) eval(u"s\n");
    EXPECT_EQ(textOf(u"y"), "1\n");
}

TEST_F(BadInputTest, takesLongSumsAsAFileDoes) {
    std::u16string sum = u"y = 1\ny";
    for (int i = 0; i < 1'500; ++i) sum += u"+y";
    expectEval(sum, "1501\n");
}

}  // namespace
