#include <string>
#include <vector>

#include <Poco/JSON/Object.h>

#include "RunningInterpreter.h"

namespace {

class BadInputTest : public RunningInterpreter {};

TEST_F(BadInputTest, answersCodeThatCannotBeTextOfAProgramWithAnError) {
    struct Case {
        std::u16string code;
        std::string reason;
    };
    const std::vector<Case> cases = {
        {std::u16string(u"1\0", 2) + u"2", "null character"},
        {std::u16string(u"x = '") + char16_t(0xD800) + u"'", "surrogates not allowed"},
        {std::u16string(64U << 20U, u'#'), "at most 16777216 are accepted"},
        {std::u16string(200'000, u'('), "too many nested parentheses"},
    };
    for (const Case& row : cases) {
        const EvalResponse response = eval(row.code);
        EXPECT_TRUE(response.isError);
        EXPECT_NE(text(response).find(row.reason), std::string::npos) << text(response).substr(0, 500);
        EXPECT_EQ(textOf(u"1"), "1\n");
    }
}

TEST_F(BadInputTest, survivesErrorsThatCannotBeDescribed) {
    eval(
        u"class Bad(Exception):\n    def __str__(self): raise RuntimeError('no text')\n"
        u"    def __repr__(self): raise RuntimeError('no text')");
    EXPECT_TRUE(eval(u"raise Bad()").isError);
    EXPECT_TRUE(eval(u"def deep(): deep()\ndeep()").isError);
    EXPECT_TRUE(eval(u"import sys\nsys.stdout = None\n1/0").isError);
    EXPECT_FALSE(eval(u"sys.stdout = sys.__stdout__").isError);
    EXPECT_EQ(textOf(u"1"), "1\n");
}

TEST_F(BadInputTest, givesUpOnAnErrorWhoseTextNeverComes) {
    EXPECT_TRUE(eval(u"class Endless(Exception):\n    def __str__(self):\n        " +
                         std::u16string(endlessLoop) + u"\nraise Endless()",
                     500)
                    .isError);
    EXPECT_EQ(textOf(u"1"), "1\n");
}

TEST_F(BadInputTest, survivesWhatCodeDoesToItsSurroundings) {
    eval(u"import signal, sys\nx = 5\ndel sys.modules['__main__']");
    EXPECT_EQ(textOf(u"x"), "5\n");
    eval(u"old = signal.signal(signal.SIGINT, signal.SIG_DFL)");
    EXPECT_TRUE(eval(endlessLoop, 300).isError);
    eval(u"import os; os.close(1)");
    EXPECT_EQ(textOf(u"print('still here')"), "still here\n");
    EXPECT_EQ(eval(u"breakpoint()\ny = 1").promptType, 1);
    for (int i = 0; i < 2; ++i) eval(u"s\n");
    EXPECT_EQ(textOf(u"y"), "1\n");
}

TEST_F(BadInputTest, takesLongSumsAsAFileDoes) {
    std::u16string sum = u"y = 1\nx = y";
    for (int i = 0; i < 1'500; ++i) sum += u"+y";
    EXPECT_EQ(textOf(sum + u"\nx"), "1501\n");
}

TEST_F(BadInputTest, refusesTextThatIsNoText) {
    EXPECT_NE(textOf(u"import sys\nsys.stdout.write(b'bytes')").find("must be str, not bytes"),
              std::string::npos);
}

}  // namespace
