#include "RunningInterpreter.h"

namespace {

using OutputTest = RunningInterpreter;

TEST_F(OutputTest, capturesEveryWayOfPrintingInTheOrderPrintedAndTakesNoneForAnError) {
    expectEval(
        u"import ctypes, os, subprocess, sys\n"
        u"print('print')\n"
        u"os.write(1, b'write\\n')\n"
        u"sys.stderr.write('stderr\\n')\n"
        u"subprocess.run(['sh', '-c', 'echo child; echo child error >&2'])\n"
        u"sys.stdout.buffer.write('bytes \\u00e9\\n'.encode())\n"
        u"x = ctypes.CDLL(None).printf(b'not flushed')",
        "print\nwrite\nstderr\nchild\nchild error\nbytes \u00e9\nnot flushed");
    EXPECT_NE(textOf(u"sys.stdout.write(b'bytes')").find("must be str, not bytes"), std::string::npos);
}

TEST_F(OutputTest, keepsTextOutsideTheBasicPlaneAndLoneSurrogates) {
    const EvalResponse response = eval(u"print('\\U0001F600' + '\\ud800' + '\\xe9' + '\\udc00x')");
    EXPECT_EQ(response.responseStr, (std::u16string{0xD83D, 0xDE00, 0xD800, 0xE9, 0xDC00, u'x', u'\n'}));
}

TEST_F(OutputTest, keepsTheNewestTextAndSaysOnceThatTheRestIsGone) {
    for (const std::u16string code : {u"for i in range(20_000): print('line', i)\nprint('end', end='')",
                                      u"print('\\U0001F600' * 50_000 + 'end', end='')"}) {
        const EvalResponse response = eval(code);
        EXPECT_EQ(response.responseStr.size(), 44'000U);
        EXPECT_TRUE(response.responseStr.ends_with(u"end"));
        ASSERT_EQ(response.faults.size(), 1U);
        EXPECT_EQ(response.faults[0].faultCode, "ComputeService.EvalTruncateResultWarning");
        EXPECT_FALSE(response.isError);
    }
    EXPECT_TRUE(eval(u"1").faults.empty());
}

TEST_F(OutputTest, forgetsWhatWasPrintedBeforeTheWindowWasCleared) {
    const EvalResponse response =
        eval(u"import numora, os\nprint('a'); os.write(1, b'b\\n'); numora.clc(); numora.home(); print('c')");
    EXPECT_EQ(text(response), "c\n");
    EXPECT_TRUE(response.clearCommandWindow);
    EXPECT_FALSE(eval(u"1").clearCommandWindow);
}

TEST_F(OutputTest, takesMoreNativeOutputThanAPipeHoldsFromCodeThatKeepsThePythonLock) {
    const EvalResponse response = eval(
        u"import ctypes\n"
        u"write = ctypes.PyDLL(None).write\n"  // keeps the lock while it writes
        u"data = b'y' * 999_999 + b'z'\n"
        u"sent = 0\n"
        u"while sent < len(data): sent += write(1, data[sent:], len(data) - sent)\n"
        u"sent");
    EXPECT_TRUE(response.responseStr.ends_with(u"yyz1000000\n"));
}

}  // namespace
