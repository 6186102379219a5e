#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <unistd.h>

#include "RunningInterpreter.h"
#include "cmddistributor/CmdDistributor.h"
#include "cmddistributor/CmdRequest.h"
#include "connector/interpreter/v1/FEval.h"
#include "fl/i18n/text.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"
#include "iqm/PacketInfo.h"
#include "iqm/UserEvalPlugin.h"
#include "nmutil/eventmgr/createLocalEventMgr.h"
#include "nmutil/io/CLCEvent.h"
#include "nmutil/io/HomeEvent.h"
#include "nmutil/io/PrintableErrorEvent.h"
#include "nmutil/io/SinkTextEvent.h"
#include "nmutil/utils/InputRequestEvent.h"
#include "nmutil/utils/IqmInputRequestEvent.h"
#include "numora/lang/correction/SuggestionEvent.h"
#include "services/prompt/prompt.h"
#include "zvm/detail.h"

namespace {

using foundation::msg_svc::eventmgr::ScopedConnection;
using nmutil::io::UnicodeStreamBuf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// What happens, in the order in which it does, each in a few words.
class History {
public:
    void add(std::string what) {
        const std::lock_guard lock(mutex_);
        entries_.push_back(std::move(what));
    }
    std::vector<std::string> entries() const {
        const std::lock_guard lock(mutex_);
        return entries_;
    }
    std::vector<std::string> take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(entries_, {});
    }
    bool has(std::string_view what) const { return count(what) > 0; }
    std::ptrdiff_t count(std::string_view what) const {
        const std::lock_guard lock(mutex_);
        return std::count(entries_.begin(), entries_.end(), what);
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> entries_;
};

class HistoryBuffer : public UnicodeStreamBuf {
public:
    HistoryBuffer(History& history, std::string name) : history_(history), name_(std::move(name)) {}

protected:
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override {
        std::string shown = fl::i18n::to_string({text, static_cast<std::size_t>(count)});
        shown.erase(std::remove(shown.begin(), shown.end(), '\n'), shown.end());
        if (!shown.empty()) history_.add(name_ + shown);
        return count;
    }

private:
    History& history_;
    const std::string name_;
};

class EndOfRequest : public cmddistributor::PromiseDelegate {
public:
    explicit EndOfRequest(History& history) : history_(history) {}
    void complete(const cmddistributor::IIPResult&) noexcept override {
        history_.add("end");
        ended_.set_value();
    }
    void waitTillReady() override { ended_.get_future().wait(); }
    bool isPromiseDone() const override { return history_.has("end"); }

private:
    History& history_;
    std::promise<void> ended_;
};

class EventTest : public RunningInterpreter {
protected:
    using Sinks = std::pair<std::shared_ptr<UnicodeStreamBuf>, std::shared_ptr<UnicodeStreamBuf>>;

    EventTest() {
        using namespace nmutil;
        on<io::CLCEvent>([](const auto&) { return "clear"; });
        on<io::HomeEvent>([](const auto&) { return "home"; });
        on<io::PrintableErrorEvent>([](const auto& event) { return "error " + event.getID(); });
        on<numora::lang::correction::SuggestionEvent>([](const auto& event) {
            return (event.isQuiet() ? "quietly suggest " : "suggest ") + fl::i18n::to_string(event.getText());
        });
        on<utils::InputRequestEvent>([](const auto& event) { return "code " + name(event.getRequester()); });
        on<utils::IqmInputRequestEvent>(
            [](const auto& event) { return "base " + name(event.getRequester()); });
    }

    template <class E>
    void on(std::function<std::string(const E&)> describe) {
        connections_.emplace_back(nmutil::eventmgr::createLocalEventMgr()->subscribe<E>(
            [this, describe = std::move(describe)](const E& event) { history_.add(describe(event)); }));
    }
    void onSinkText() {
        on<nmutil::io::SinkTextEvent>([](const auto& event) {
            return "text " + std::to_string(event.getStreamType()) + " " +
                   fl::i18n::to_string(event.getText());
        });
    }

    static std::string name(nmutil::prompt::InputRequester prompt) {
        using namespace nmutil::prompt;
        switch (prompt) {
            case NO_PROMPT:
                return "runs";
            case BASE_PROMPT:
                return "idle";
            case DEBUG_PROMPT:
                return "debug";
            case INPUT_PROMPT:
                return "input";
            case KEYBOARD_PROMPT:
                return "keyboard";
            case PAUSE_PROMPT:
                return "pause";
            case INCOMPLETE_BLOCK_PROMPT:
                return "incomplete";
            default:
                return "?";
        }
    }

    /// Runs a request that nobody captures, with sinks of its own or else on the terminal, to its end.
    void run(std::shared_ptr<cmddistributor::CmdRequest> request, const Sinks& sinks,
             cmddistributor::WhenToDequeue when = cmddistributor::WhenToDequeue::Default) {
        cmddistributor::RunOptions options(when);
        if (sinks.first) options = {sinks.first, sinks.second, when, {}, {}};
        const auto distributor = host_->zvm()->getCmdDistributor();
        const auto end = std::make_shared<EndOfRequest>(history_);
        const auto id = zvm::detail::createID();
        distributor->enqueue(id, std::move(request), std::move(options), end);
        distributor->setReadyToExecute(id);
        end->waitTillReady();
    }
    void runCode(const std::u16string& code, const Sinks& sinks) {
        run(std::make_shared<cmddistributor::EvalCmdRequest>(false, cmddistributor::IqmStreamID::User,
                                                             nullptr, nullptr, code, "test::Eval"),
            sinks);
    }
    void stream(const std::u16string& code) {
        runCode(code, {std::make_shared<HistoryBuffer>(history_, "out "),
                       std::make_shared<HistoryBuffer>(history_, "err ")});
    }

    void call(const std::u16string& function, const std::string& dequeMode = {}) {
        auto request = std::make_unique<connector::interpreter::v1::FEval>("test");
        request->function = function;
        request->dequeMode = dequeMode;
        deliver(std::move(request)).get();
    }

    History history_;

private:
    std::vector<ScopedConnection> connections_;
    const nmutil::ScopedFactoryRegistration plugin_ = iqm::PacketInfo::registerPlugin2(
        "test::Eval",
        [](iqm::PluginOptions options, nmutil::contextmgr::NcrID) {
            return std::make_unique<iqm::UserEvalPlugin>(std::move(options));
        },
        false);
};

TEST_F(EventTest, tellsWhenTheBaseLevelRunsCodeAndWhenItWaitsForTheNext) {
    eval(u"1");
    EXPECT_THAT(history_.take(), ElementsAre("base runs", "base idle"));
    eval(u"if True:");
    EXPECT_THAT(history_.take(), ElementsAre("base runs", "base incomplete"));
    eval(u"raise ValueError()");
    EXPECT_THAT(history_.take(), ElementsAre("base runs", "base idle"));
    call(u"dir");
    EXPECT_THAT(history_.take(), ElementsAre("base runs", "base idle"));
}

TEST_F(EventTest, tellsWhenCodeWaitsAtAPromptAndWhenItGoesOn) {
    struct Case {
        std::u16string code, answer;
        std::string prompt;
    };
    for (const Case& row : {Case{u"import numora\nx = input('?')", u"1\n", "code input"},
                            Case{u"breakpoint()\npass", u"c\n", "code debug"},
                            Case{u"numora.keyboard()", u"exit()\n", "code keyboard"},
                            Case{u"numora.pause()", u"\n", "code pause"}}) {
        eval(row.code);
        EXPECT_THAT(history_.take(), ElementsAre("base runs", row.prompt));
        eval(row.answer);
        EXPECT_THAT(history_.take(), ElementsAre("code runs", "base idle")) << row.prompt;
    }
}

TEST_F(EventTest, saysNothingOfAPromptThatIsAnsweredAlready) {
    eval(u"x = input(); y = input()");
    history_.take();
    eval(u"1\n2\n");
    EXPECT_THAT(history_.take(), ElementsAre("code runs", "base idle"));
}

TEST_F(EventTest, leavesThePromptOfWaitingCodeAsItIsWhileAFunctionIsCalledThereThatDoesNotAsk) {
    eval(u"def ask(): return input('?')\nbreakpoint()\npass");
    history_.take();
    call(u"dir", "prompt");
    EXPECT_THAT(history_.take(), IsEmpty());
    inBackground([this] { call(u"ask", "prompt"); });
    ASSERT_TRUE(eventually([this] { return history_.has("code input"); }));
    eval(u"answer\n");
    joinBackground();
    EXPECT_THAT(history_.take(), ElementsAre("code input", "code runs", "code debug"));
    eval(u"c\n");
    EXPECT_THAT(history_.take(), ElementsAre("code runs", "base idle"));
}

TEST_F(EventTest, keepsClearingAndHomeBetweenTheTextsOfAStream) {
    stream(
        u"import numora, os, sys\nprint('a'); os.write(1, b'b'); numora.clc(); print('c')\n"
        u"numora.home(); x = sys.stderr.write('d')");
    EXPECT_THAT(history_.take(), ElementsAre("base runs", "out a", "out b", "clear", "out c", "home", "err d",
                                             "base idle", "end"));
}

TEST_F(EventTest, raisesNoClearForCodeThatIsCapturedNorForWhatRunsAsideOfIt) {
    const auto response = eval(u"import numora\nnumora.clc(); numora.home()");
    EXPECT_TRUE(response.clearCommandWindow);
    EXPECT_THAT(history_.take(), ElementsAre("base runs", "base idle"));

    eval(u"import time\ngoes_on = False\ndef go_on():\n    global goes_on\n    goes_on = True");
    history_.take();
    inBackground([this] {
        ASSERT_TRUE(eventually([this] { return history_.has("base runs"); }));
        call(u"numora.clc", "ppe");
        call(u"numora.home", "ppe");
        call(u"go_on", "ppe");
    });
    // No lock, such as that of an Event: the call runs on the thread that would hold it.
    const auto running = eval(u"print('kept')\nwhile not goes_on: time.sleep(0.001)");
    joinBackground();
    EXPECT_EQ(text(running), "kept\n");
    EXPECT_FALSE(running.clearCommandWindow);
    EXPECT_FALSE(history_.has("clear") || history_.has("home"));
}

TEST_F(EventTest, raisesClearForAFunctionThatIsCalledOnItsOwn) {
    eval(u"import numora");
    history_.take();
    call(u"numora.clc");
    EXPECT_THAT(history_.take(), ElementsAre("base runs", "clear", "base idle"));
}

TEST_F(EventTest, showsTheErrorAndSuggestionOfAStreamBeforeItsEndAndThoseOfACapturedEvaluationInItsResponse) {
    stream(u"prnt(1)");
    EXPECT_THAT(history_.take(),
                ElementsAre("base runs", "error NUMORA:NameError", "suggest print", "base idle", "end"));
    EXPECT_THAT(textOf(u"prnt(1)"), HasSubstr("Did you mean: print ?"));
    EXPECT_THAT(history_.take(), ElementsAre("base runs", "quietly suggest print", "base idle"));
}

TEST_F(EventTest, leavesToStreamsWhatNoCapturedEvaluationWaitsForAnyMore) {
    onSinkText();
    eval(u"import numora\nx = input('?')\nprint(x)\nnumora.clc()\nprnt(1)");
    history_.take();
    run(std::make_shared<cmddistributor::PackagedTaskCmdRequest>([] {
            for (const char16_t unit : {u'1', u'\n'}) services::io::rawModeCharHandler(unit);
        }),
        {}, cmddistributor::WhenToDequeue::Prompt);
    ASSERT_TRUE(eventually([this] { return history_.has("base idle"); }));
    EXPECT_THAT(history_.take(), ElementsAre("end", "code runs", "text 0 1", "text 0 \n", "clear",
                                             "error NUMORA:NameError", "suggest print", "base idle"));
    EXPECT_EQ(textOf(u"x"), "'1'\n");
}

TEST_F(EventTest, showsTheErrorAndSuggestionOfAStreamToItAndNotToWhoAnswersItsPrompt) {
    inBackground([this] { stream(u"x = input()\nprnt(1)"); });
    ASSERT_TRUE(eventually([this] { return history_.has("code input"); }));
    const auto answer = eval(u"1\n");
    joinBackground();
    EXPECT_EQ(text(answer), "");
    EXPECT_FALSE(answer.isError);
    EXPECT_TRUE(history_.has("error NUMORA:NameError") && history_.has("suggest print"));
}

TEST_F(EventTest, raisesTextThatGoesToTheTerminalAndNoOther) {
    onSinkText();
    runCode(u"import sys\nprint('a')\nsys.stderr.write('b')\nx = 1", {});
    EXPECT_THAT(history_.take(),
                ElementsAre("base runs", "text 0 a", "text 0 \n", "text 1 b", "base idle", "end"));
    eval(u"print('captured')");
    stream(u"print('streamed')");
    EXPECT_THAT(history_.take(),
                ElementsAre("base runs", "base idle", "base runs", "out streamed", "base idle", "end"));
    run(std::make_shared<cmddistributor::PackagedTaskCmdRequest>([] {
            if (::write(STDOUT_FILENO, "stray", 5) < 0) ADD_FAILURE();
        }),
        {});
    EXPECT_TRUE(eventually([this] { return history_.has("text 0 stray"); }));
}

TEST_F(EventTest, letsPythonThreadsGoOnWhileItWaitsForHandlers) {
    on<nmutil::io::CLCEvent>([this](const auto&) -> std::string {
        // For less than the raiser's patience, after which the threads would go on in any case.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        const auto before = history_.count("out tick");
        while (history_.count("out tick") == before) {
            if (std::chrono::steady_clock::now() > deadline) return "stands still";
            std::this_thread::yield();
        }
        return "goes on";
    });
    stream(
        u"import numora, threading, time\nisDone = threading.Event()\n"
        u"def tick():\n    while not isDone.is_set(): print('tick'); time.sleep(0.001)\n"
        u"t = threading.Thread(target=tick); t.start()\n"
        u"numora.clc()\nprint('after')\nisDone.set(); t.join()");
    auto seen = history_.take();
    std::erase(seen, "out tick");
    EXPECT_THAT(seen, ElementsAre("base runs", "clear", "goes on", "out after", "base idle", "end"));
}

// Threads that print faster than the text is taken wait for room.
TEST_F(EventTest, keepsTheTextThatThreadsPrintWhileNoRequestRuns) {
    constexpr int pieces = 8000;
    std::array<std::string, 2> texts;
    std::atomic<bool> isDone{false};
    const ScopedConnection slow(nmutil::eventmgr::createLocalEventMgr()->subscribe<nmutil::io::SinkTextEvent>(
        [&](const nmutil::io::SinkTextEvent& event) {
            const auto busyUntil = std::chrono::steady_clock::now() + std::chrono::microseconds(50);
            while (std::chrono::steady_clock::now() < busyUntil) continue;
            auto& text = texts.at(event.getStreamType() == nmutil::io::STANDARD_OUTPUT ? 0 : 1);
            text += fl::i18n::to_string(event.getText());
            if (event.getStreamType() != nmutil::io::STANDARD_OUTPUT && text.ends_with("end\n"))
                isDone = true;
        }));
    std::array<int, 2> start{};
    ASSERT_EQ(pipe(start.data()), 0);
    eval(
        u"import os, sys, threading\n"
        u"def prints():\n"
        u"    os.read(" +
        fl::i18n::to_ustring(std::to_string(start[0])) +
        u", 1)\n"
        u"    for i in range(" +
        fl::i18n::to_ustring(std::to_string(pieces)) +
        u"):\n"
        u"        print(i); print(i, file=sys.stderr)\n"
        u"    print('end'); print('end', file=sys.stderr)\n"
        u"threading.Thread(target=prints).start()");
    call(u"dir");  // when it is answered, the evaluation has ended
    ASSERT_EQ(write(start[1], "x", 1), 1);
    EXPECT_TRUE(eventually([&] { return isDone.load(); }));
    std::string expected;
    for (int i = 0; i < pieces; ++i) expected += std::to_string(i) + "\n";
    EXPECT_EQ(texts, (std::array{expected + "end\n", expected + "end\n"}));
    for (const int end : start) close(end);
}

}  // namespace
