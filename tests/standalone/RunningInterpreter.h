#pragma once

#include <atomic>
#include <future>

#include <gtest/gtest.h>

#include "cmddistributor/CmdDistributor.h"
#include "cmddistributor/CmdRequest.h"
#include "connector/common/ContextState.h"
#include "connector/common/v1/Message.h"
#include "connector/interpreter/Module.h"
#include "nmutil/prompt/InputRequester.h"
#include "standalone/StandaloneHost.h"
#include "support/threads.h"

/// Code that runs until it is interrupted. The thread sanitizer lets a signal in only at a call that it
/// intercepts, such as an allocation.
#if defined(__SANITIZE_THREAD__)
inline constexpr const char16_t* endlessLoop = u"while True: bytes(4096)";
#else
inline constexpr const char16_t* endlessLoop = u"while True: pass";
#endif

/// A real interpreter with the module's services, as a client reaches them.
class RunningInterpreter : public testing::Test {
protected:
    using ContextPtr = std::shared_ptr<connector::common::ContextState>;

    /// What an evaluation was answered with. Copyable, other than the message itself.
    struct EvalResponse {
        std::u16string responseStr;
        std::vector<connector::common::v1::Fault> faults;
        bool isError = false;
        bool clearCommandWindow = false;
        int promptType = 0;
    };

    RunningInterpreter();
    ~RunningInterpreter() override;

    /// Evaluates `code` and waits for the response.
    EvalResponse eval(const std::u16string& code, int timeoutMs = 0, int width = 0, int height = 0,
                      ContextPtr context = nullptr);
    /// The text of the response, in UTF-8.
    static std::string text(const EvalResponse& response);
    std::string textOf(const std::u16string& code) { return text(eval(code)); }
    /// Evaluates code without an error.
    void expectEval(const std::u16string& code, const std::string& text, int promptType = 0);
    /// The message of the first fault, or else the text.
    static std::string answer(const EvalResponse& response);
    /// Calls a function and waits. The message of the first fault, or else the results.
    std::string call(const std::u16string& function, std::vector<std::u16string> arguments = {},
                     int nargout = 1, const std::string& dequeMode = "", int timeoutMs = 0,
                     ContextPtr context = nullptr);
    void interrupt();
    connector::Future<std::unique_ptr<connector::Message>> deliver(
        std::unique_ptr<connector::Message> message, ContextPtr context = nullptr);

    /// Lets Python code call `function` by `name`, with the interpreter's lock held.
    void define(const std::u16string& name, void (*function)());
    /// Lets code say with begin() that it runs.
    void defineBegin();
    /// Starts `action` on another thread, and returns when code that it runs has called begin().
    template <class Action>
    auto start(Action action) {
        const int before = begun;
        auto result = std::async(std::launch::async, std::move(action));
        EXPECT_TRUE(eventually([before] { return begun > before; }));
        return result;
    }
    /// Starts an evaluation, and returns when its code runs.
    std::future<EvalResponse> startEval(const std::u16string& code);
    /// Waits until that prompt is shown. False when it has not come to that.
    static bool reaches(nmutil::prompt::InputRequester prompt);

    /// Queues a request of the host itself. The future becomes ready when it has ended.
    std::future<void> submit(std::shared_ptr<cmddistributor::CmdRequest> request,
                             cmddistributor::RunOptions options = {});
    /// What `question` returns on the interpreter thread, at any prompt.
    template <class Question>
    auto onInterpreter(Question question) {
        std::packaged_task<decltype(question())()> task(std::move(question));
        submit(std::make_shared<cmddistributor::PackagedTaskCmdRequest>([&task] { task(); }),
               cmddistributor::RunOptions(cmddistributor::WhenToDequeue::Prompt))
            .get();
        return task.get_future().get();
    }

    static inline std::atomic<int> begun{0};
    std::unique_ptr<standalone::StandaloneHost> host_;
    const std::shared_ptr<connector::json::JsonSerializer> serializer_ =
        std::make_shared<connector::json::JsonSerializer>();
    std::unique_ptr<connector::interpreter::Module> module_;
};

/// The same with the services that stream.
class StreamingInterpreter : public RunningInterpreter {
protected:
    StreamingInterpreter();
};
