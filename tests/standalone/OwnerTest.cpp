#include <cstdlib>
#include <random>

#include "RunningInterpreter.h"
#include "connector/common/RequestOrigin.h"
#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "messages/LocalMessageService.h"

namespace {

using namespace std::chrono_literals;
using connector::common::RequestOrigin;

/// Code that is streamed, and the client that it is for, whose queue is much smaller than what the code
/// prints.
class OwnerTest : public StreamingInterpreter {
protected:
    void run(const std::string& code, std::chrono::milliseconds ownerWait = 60s) {
        session_ = host_->messages()->openSession({.queueBytes = 16U << 20U, .ownerWait = ownerWait});
        for (const auto* pattern : {"/eval/response/**", "/eventmgr/0/flood"}) session_->subscribe(pattern);
        const auto context = std::make_shared<connector::common::ContextState>();
        RequestOrigin::set(*context, {.request = RequestOrigin::newName(), .pace = session_->pace()});
        session_->publish("/eval/request", connector::json::quoted(code), context);
    }
    bool isAwaited() {
        return eventually([this] { return session_->pace()->isBehind(); });
    }
    /// What comes up to the completion, as text; that of events and of losses with their channel.
    std::string received(const std::function<void()>& pause) {
        for (std::string text;;) {
            pause();
            const auto taken = session_->take(64U << 10U, 10s);
            for (const auto& frame : taken.frames) {
                if (frame->channel() == "/eval/response/completion") return text;
                if (frame->channel() == "/eval/response/output") {
                    text += connector::json::parse(std::string(frame->data())).extract<std::string>();
                } else if (!frame->channel().starts_with("/eval")) {
                    text.append(frame->channel()).append(frame->data());
                }
            }
            if (taken.isClosed) return text + " closed";
        }
    }

    std::shared_ptr<messages::ClientSession> session_;
    const std::function<void()> slowly_ = [] { std::this_thread::sleep_for(1ms); };
};

TEST_F(OwnerTest, getsAllThatItsCodePrintsAndPostsThoughItReadsSlowly) {
    for (const std::string code :
         {"import subprocess\nr = subprocess.run(['sh', '-c', 'yes x | head -c 64000000'])",
          "import threading\ndef p():\n    for i in range(16_000): print('x' * 2000)\n"
          "t = threading.Thread(target=p); t.start(); t.join()",
          "import numora\nfor i in range(32_000): numora.post_event('flood', 'x' * 1000)"}) {
        run(code);
        const std::string text = received(slowly_);
        EXPECT_EQ(std::count(text.begin(), text.end(), 'x'), 32'000'000) << code;
    }
}

TEST_F(OwnerTest, isWaitedForInSlicesInWhichCallsAndInterruptsGetThrough) {
    for (const std::string step : {"print('x' * 999)", "os.write(1, b'x' * 64_000)",
                                   "numora.post_event('flood', 'x' * 9_999)", "numora.clc()"}) {
        run("import numora, os\nwhile True: _ = " + step);
        ASSERT_TRUE(isAwaited());
        EXPECT_EQ(call(u"len", {u"[1]"}, 1, "ppe"), "[1]") << step;
        EXPECT_TRUE(session_->pace()->isBehind()) << step;
        interrupt();
        EXPECT_EQ(call(u"len", {u"[1]"}), "[1]") << step;  // though nothing was taken
        EXPECT_EQ(received([] {}).find("dropped"), std::string::npos) << step;
    }
}

TEST_F(OwnerTest, isNotWaitedForWhenItTakesNothing) {
    run("for i in range(32_000): print('x' * 999)", 50ms);
    EXPECT_EQ(call(u"len", {u"[1]"}), "[1]");
    EXPECT_NE(received([] {}).find("dropped"), std::string::npos);
}

// At random moments the client stops and goes on, leaves, or interrupts. NUMORA_OWNER_TRIALS sets how many
// are tried.
TEST_F(OwnerTest, losesNothingAndHoldsUpNothingWhateverItDoes) {
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    const auto upTo = [&random](int most) { return std::uniform_int_distribution<int>(0, most)(random); };
    std::string expected;
    for (int i = 0; i < 60'000; ++i) expected += std::to_string(i) + std::string(500, 'x') + '\n';
    const char* const wanted = std::getenv("NUMORA_OWNER_TRIALS");
    for (int trial = wanted != nullptr ? std::atoi(wanted) : 10; trial > 0; --trial) {
        const bool leaves = upTo(3) == 0, isEndless = leaves || upTo(1) == 0;
        const std::string loop = upTo(1) == 0 ? "print(str(i) + 'x' * 500)"
                                              : "_ = os.write(1, str(i).encode() + b'x' * 500 + b'\\n')";
        run("import os\nfor i in range(60_000): " + loop + (isEndless ? "\nwhile True: print()" : ""),
            leaves ? 100ms : 60s);
        std::string text;
        int takes = upTo(400);
        std::jthread reader([&, pauses = upTo(20)] {
            text = received([&] {
                if (--takes == 0 && leaves) session_->close();
                if (takes % 32 < pauses) std::this_thread::sleep_for(1ms);
            });
        });
        if (isEndless) {
            std::this_thread::sleep_for(std::chrono::milliseconds(upTo(300)));
            EXPECT_EQ(call(u"len", {u"[1]"}, 1, "ppe"), "[1]") << seed;
            interrupt();
        }
        EXPECT_EQ(call(u"len", {u"[1]"}), "[1]") << seed;
        if (leaves) session_->close();
        reader.join();
        if (leaves) continue;
        const std::size_t common = std::min(text.size(), expected.size());
        EXPECT_TRUE(text.compare(0, common, expected, 0, common) == 0 && (isEndless || text == expected))
            << seed;
    }
}

}  // namespace
