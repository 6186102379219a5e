#include <array>
#include <mutex>

#include <unistd.h>

#include "RunningInterpreter.h"
#include "fl/i18n/text.h"
#include "iqm/plugins.h"
#include "nmutil/events.h"
#include "services/window.h"

namespace {

using nmutil::io::STANDARD_OUTPUT;

/// Records what happens, in the order in which it does, each in a few words.
class EventTest : public RunningInterpreter {
protected:
    EventTest() {
        using namespace nmutil;
        const auto promptOf = [](const auto& event) {
            return std::string(prompt::promptName(event.getRequester()));
        };
        on<io::CLCEvent>([](const auto&) { return "clear"; });
        on<io::HomeEvent>([](const auto&) { return "home"; });
        on<io::PrintableErrorEvent>([](const auto& event) { return "error " + event.getID(); });
        on<numora::lang::correction::SuggestionEvent>([](const auto& event) {
            return (event.isQuiet() ? "quietly suggest " : "suggest ") + fl::i18n::to_string(event.getText());
        });
        on<utils::InputRequestEvent>([=](const auto& event) {
            const std::string number = event.getNumber() > 0 ? " " + std::to_string(event.getNumber()) : "";
            return "code " + promptOf(event) + number + (event.isEchoed() ? "" : " hidden");
        });
        on<utils::IqmInputRequestEvent>([=](const auto& event) { return "base " + promptOf(event); });
    }

    template <class E>
    void on(std::function<std::string(const E&)> describe) {
        connections_.emplace_back(nmutil::eventmgr::createLocalEventMgr()->subscribe<E>(
            [this, describe = std::move(describe)](const E& event) { record(describe(event)); }));
    }
    void onSinkText() {
        on<nmutil::io::SinkTextEvent>([](const auto& event) {
            return (event.getStreamType() == STANDARD_OUTPUT ? "out " : "err ") +
                   fl::i18n::to_string(event.getText());
        });
    }

    void record(const std::string& what) {
        const std::lock_guard lock(mutex_);
        recorded_ += (recorded_.empty() ? "" : ", ") + what;
    }
    std::string recorded() {
        const std::lock_guard lock(mutex_);
        return std::exchange(recorded_, {});
    }
    bool awaitRecord(const std::string& what) {
        return eventually([&] {
            const std::lock_guard lock(mutex_);
            return recorded_.find(what) != std::string::npos;
        });
    }
    std::string recordedBy(const std::u16string& code) {
        eval(code);
        return recorded();
    }

    /// Runs code that nobody captures, with sinks of its own or else on the terminal, to its end.
    void run(const std::u16string& code, bool hasSinks) {
        cmddistributor::RunOptions options;
        if (hasSinks) {
            const auto sink = [this](auto name) { return std::make_shared<Sink>(*this, name); };
            options = {sink("out "), sink("err "), cmddistributor::WhenToDequeue::Default, {}, {}};
        }
        submit(std::make_shared<cmddistributor::EvalCmdRequest>(false, cmddistributor::IqmStreamID::User,
                                                                nullptr, nullptr, code, "test::Eval"),
               std::move(options))
            .get();
    }
    void stream(const std::u16string& code) { run(code, true); }

private:
    class Sink : public nmutil::io::UnicodeStreamBuf {
    public:
        Sink(EventTest& test, std::string name) : test_(test), name_(std::move(name)) {}

    protected:
        std::streamsize xsputn(const char16_t* text, std::streamsize count) override {
            std::string shown = fl::i18n::to_string({text, static_cast<std::size_t>(count)});
            std::erase(shown, '\n');
            if (!shown.empty()) test_.record(name_ + shown);
            return count;
        }

    private:
        EventTest& test_;
        const std::string name_;
    };

    std::mutex mutex_;
    std::string recorded_;
    std::vector<foundation::msg_svc::eventmgr::ScopedConnection> connections_;
    const nmutil::ScopedFactoryRegistration plugin_ = iqm::PacketInfo::registerPlugin2(
        "test::Eval",
        [](iqm::PluginOptions options, nmutil::contextmgr::NcrID) {
            return std::make_unique<iqm::UserEvalPlugin>(std::move(options));
        },
        false);
};

TEST_F(EventTest, tellsWhenCodeWaitsAtAPromptAndWhenItGoesOn) {
    struct Case {
        std::u16string code, answer;
        std::string prompt;
    };
    for (const Case& row :
         {Case{u"import numora, getpass\nx = getpass.getpass()", u"1\n", "INPUT_PROMPT 1 hidden"},
          Case{u"x = input(); y = input()", u"1\n2\n", "INPUT_PROMPT 2"},
          Case{u"breakpoint()\npass", u"c\n", "DEBUG_PROMPT 3"},
          Case{u"numora.keyboard()", u"exit()\n", "KEYBOARD_PROMPT 4"},
          Case{u"numora.pause()", u"\n", "PAUSE_PROMPT 5"}}) {
        EXPECT_EQ(recordedBy(row.code), "base NO_PROMPT, code " + row.prompt);
        EXPECT_EQ(recordedBy(row.answer), "code NO_PROMPT, base BASE_PROMPT") << row.prompt;
    }
}

TEST_F(EventTest, leavesThePromptOfWaitingCodeAsItIsWhileAFunctionIsCalledThereThatDoesNotAsk) {
    recordedBy(u"import getpass\ndef ask(): return input('?')\nsecret = getpass.getpass()");
    call(u"dir", {}, 1, "prompt");
    EXPECT_EQ(recorded(), "");
    auto asking = std::async(std::launch::async, [this] { call(u"ask", {}, 1, "prompt"); });
    ASSERT_TRUE(awaitRecord("code INPUT_PROMPT"));
    EXPECT_TRUE(services::prompt::promptNumber() == 2 && services::prompt::isEchoed());
    eval(u"answer\n");
    asking.get();
    EXPECT_EQ(recorded(), "code INPUT_PROMPT 2, code NO_PROMPT, code INPUT_PROMPT 1 hidden");
    EXPECT_TRUE(services::prompt::promptNumber() == 1 && !services::prompt::isEchoed());
    EXPECT_EQ(recordedBy(u"known\n"), "code NO_PROMPT, base BASE_PROMPT");
    EXPECT_TRUE(services::prompt::promptNumber() == 0 && services::prompt::isEchoed());
}

TEST_F(EventTest, letsWhatRunsAsideOfCodeLeaveItsWindowAlone) {
    EXPECT_EQ(recordedBy(u"import time, numora\nnumora.clc(); numora.home(); prnt(1)"),
              "base NO_PROMPT, quietly suggest print, base BASE_PROMPT");
    eval(u"def go_on():\n    global goes_on\n    goes_on = True");
    recorded();
    // No lock, such as that of an Event: the call runs on the thread that would hold it.
    auto running = startEval(u"goes_on = False\nprint('kept')\nwhile not goes_on: time.sleep(0.001)");
    for (const auto* function : {u"numora.clc", u"numora.home", u"go_on"}) call(function, {}, 1, "ppe");
    const EvalResponse response = running.get();
    EXPECT_EQ(text(response), "kept\n");
    EXPECT_FALSE(response.clearCommandWindow);
    EXPECT_EQ(recorded().find("clear"), std::string::npos);
}

TEST_F(EventTest, leavesToStreamsWhatNoCapturedEvaluationWaitsForAnyMore) {
    onSinkText();
    recordedBy(u"import numora\nx = input('?')\nprint(x)\nnumora.clc()\nprnt(1)");
    onInterpreter([] {
        for (const char16_t unit : {u'1', u'\n'}) services::io::rawModeCharHandler(unit);
    });
    ASSERT_TRUE(awaitRecord("base BASE_PROMPT"));
    EXPECT_EQ(
        recorded(),
        "code NO_PROMPT, out 1, out \n, clear, error NUMORA:NameError, suggest print, base BASE_PROMPT");
    EXPECT_EQ(textOf(u"x"), "'1'\n");
}

TEST_F(EventTest, raisesTextThatGoesToTheTerminalAndNoOther) {
    onSinkText();
    run(u"import sys\nprint('a')\nsys.stderr.write('b')\nx = 1", false);
    EXPECT_EQ(recorded(), "base NO_PROMPT, out a, out \n, err b, base BASE_PROMPT");
    EXPECT_EQ(recordedBy(u"print('captured')"), "base NO_PROMPT, base BASE_PROMPT");
    stream(u"print('streamed')");
    EXPECT_EQ(recorded(), "base NO_PROMPT, out streamed, base BASE_PROMPT");
    onInterpreter([] { return ::write(STDOUT_FILENO, "stray", 5); });
    EXPECT_TRUE(awaitRecord("out stray"));
}

TEST_F(EventTest, letsPythonThreadsGoOnWhileItWaitsForHandlers) {
    defineBegin();
    recorded();
    on<nmutil::io::CLCEvent>([](const auto&) -> std::string {
        // For less than the raiser's timeout, after which the threads would go on in any case.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        for (const int before = begun; begun == before; std::this_thread::yield()) {
            if (std::chrono::steady_clock::now() > deadline) return "stands still";
        }
        return "goes on";
    });
    stream(
        u"import numora, threading, time\nisDone = threading.Event()\n"
        u"def tick():\n    while not isDone.is_set(): begin(); time.sleep(0.001)\n"
        u"t = threading.Thread(target=tick); t.start()\n"
        u"numora.clc()\nprint('after')\nisDone.set(); t.join()");
    EXPECT_EQ(recorded(), "base NO_PROMPT, clear, goes on, out after, base BASE_PROMPT");
}

// Threads that print faster than the text is taken wait for room.
TEST_F(EventTest, keepsTheTextThatThreadsPrintWhileNoRequestRuns) {
    std::array<std::string, 2> texts;
    on<nmutil::io::SinkTextEvent>([&](const auto& event) {
        const auto busyUntil = std::chrono::steady_clock::now() + std::chrono::microseconds(50);
        while (std::chrono::steady_clock::now() < busyUntil) continue;
        const bool isError = event.getStreamType() != STANDARD_OUTPUT;
        auto& text = texts.at(isError ? 1 : 0) += fl::i18n::to_string(event.getText());
        return isError && text.ends_with("end\n") ? "all" : "text";
    });
    const std::string start = textOf(
        u"import os, sys, threading\nends = os.pipe()\n"
        u"def prints():\n"
        u"    os.read(ends[0], 1)\n"
        u"    for i in [*range(8000), 'end']: print(i); print(i, file=sys.stderr)\n"
        u"threading.Thread(target=prints).start()\nends[1]");
    call(u"dir");  // when it is answered, the evaluation has ended
    ASSERT_EQ(write(std::stoi(start), "x", 1), 1);
    EXPECT_TRUE(awaitRecord("all"));
    std::string expected;
    for (int i = 0; i < 8000; ++i) expected += std::to_string(i) + "\n";
    EXPECT_EQ(texts, (std::array{expected + "end\n", expected + "end\n"}));
}

}  // namespace
