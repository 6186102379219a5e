#include "RunningInterpreter.h"
#include "support/LogRecords.h"

namespace {

using InterruptTest = RunningInterpreter;

TEST_F(InterruptTest, endsAWaitForAChildProcess) {
    eval(u"import os, subprocess\nends = os.pipe()");  // the child ends with this process
    auto running = startEval(u"subprocess.run(['cat'], stdin=ends[0])");
    interrupt();
    const std::string shown = text(running.get());
    EXPECT_TRUE(shown.ends_with("KeyboardInterrupt\n")) << shown;
}

TEST_F(InterruptTest, endsACoroutineThatWaitsOrRunsAndLeavesTheLoopAsItWas) {
    defineBegin();
    eval(
        u"import asyncio\nasync def waits():\n    try:\n        begin(); await asyncio.sleep(60)\n"
        u"    finally: print('cleaned')\nasync def runs():\n    begin()\n    " +
        std::u16string(endlessLoop));
    for (const auto& [code, begin] : {std::pair(u"await waits()", "cleaned\n"), {u"await runs()", ""}}) {
        auto running = start([this, code] { return eval(code); });
        interrupt();
        const std::string shown = text(running.get());
        EXPECT_TRUE(
            shown.starts_with(std::string(begin) + "Traceback (most recent call last):\n  File \"<eval"));
        EXPECT_TRUE(shown.ends_with("\nKeyboardInterrupt\n")) << shown;
    }
    // Wherever it hits the loop's own code, no step of a task is lost; or it is noticed.
    for (int i = 0; i < 150; ++i) {
        auto running = start([this] { return eval(u"begin()\nwhile True: await asyncio.sleep(0)", 20'000); });
        interrupt();
        const std::string shown = text(running.get());
        ASSERT_TRUE(shown.ends_with("\nKeyboardInterrupt\n")) << i << shown;
    }
    const auto lost = textOf(
        u"async def loses():\n    loop = asyncio.get_running_loop()\n    def call_soon(*of, **by):\n"
        u"        del loop.call_soon\n        raise KeyboardInterrupt\n    loop.call_soon = call_soon\n"
        u"    await asyncio.sleep(0)\nawait loses()");
    EXPECT_TRUE(lost.ends_with("KeyboardInterrupt\n")) << lost;
    expectEval(u"await asyncio.sleep(0, 1)", "1\n");
}

TEST_F(InterruptTest, isReportedToTheEvaluationWhoseCodeHandlesIt) {
    defineBegin();
    const LogRecords log("connector::interpreter::cmdwinsink");
    auto running = start([this] {
        return eval(u"try:\n    begin()\n    " + std::u16string(endlessLoop) +
                    u"\nexcept KeyboardInterrupt: pass");
    });
    interrupt();
    EXPECT_FALSE(running.get().isError);
    EXPECT_EQ(log.count("debug: ctrlCProcessed:"), 1) << log.all();
}

TEST_F(InterruptTest, endsCodeThatWaitsAtAPrompt) {
    defineBegin();
    expectEval(u"try: input('? ')\nexcept KeyboardInterrupt: print('interrupted')\nbegin()\ninput('again ')",
               "? ", 3);
    start([this] { interrupt(); }).get();
    ASSERT_TRUE(reaches(nmutil::prompt::INPUT_PROMPT));
    expectEval(u"", "interrupted\nagain ", 3);
    expectEval(u"x\n", "'x'\n");

    EXPECT_EQ(eval(u"breakpoint()\nx = 1").promptType, 1);
    interrupt();
    ASSERT_TRUE(reaches(nmutil::prompt::BASE_PROMPT));
    expectEval(u"'idle'", "'idle'\n");

    // What is sent after an interrupt is no answer to the prompt that it ends, even if that takes a while.
    eval(
        u"import signal, time\n"
        u"signal.signal(signal.SIGINT, lambda *of: (time.sleep(0.05), signal.default_int_handler(*of)))\n"
        u"input()");
    interrupt();
    expectEval(u"'idle'", "'idle'\n");
}

TEST_F(InterruptTest, isMadeWhenTheServiceOrTheHostEnd) {
    const std::u16string loop = u"    " + std::u16string(endlessLoop) + u"\n";
    auto running = startEval(u"try:\n" + loop + u"except KeyboardInterrupt:\n" + loop);
    module_.reset();
    const std::string shown = text(running.get());
    EXPECT_TRUE(shown.empty() || shown.ends_with("KeyboardInterrupt\n")) << shown;
    host_.reset();
}

}  // namespace
