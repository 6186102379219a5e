#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "connector/common/v1/Fault.h"
#include "connector/interpreter/Module.h"
#include "standalone/StandaloneHost.h"

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
    EvalResponse eval(const std::u16string& code, int timeoutMs = 0, int width = 0, int height = 0);
    /// The text of the response, in UTF-8.
    std::string textOf(const std::u16string& code) { return text(eval(code)); }
    static std::string text(const EvalResponse& response);

    /// Calls a function and waits for the response. Returns the results, or the message of the first fault.
    std::string call(const std::u16string& function, std::vector<std::u16string> arguments = {},
                     int nargout = 1, const std::string& dequeMode = "", int timeoutMs = 0);

    /// Starts `action` on a thread that the destructor joins.
    void inBackground(std::function<void()> action) { threads_.emplace_back(std::move(action)); }
    void joinBackground();

    /// Waits, with a deadline as a fail-safe, until `condition` holds.
    static bool eventually(const std::function<bool()>& condition);

    connector::Future<std::unique_ptr<connector::Message>> deliver(
        std::unique_ptr<connector::Message> message,
        std::shared_ptr<connector::common::ContextState> context = nullptr);
    void interrupt();

    std::unique_ptr<standalone::StandaloneHost> host_;
    const std::shared_ptr<connector::json::JsonSerializer> serializer_ =
        std::make_shared<connector::json::JsonSerializer>();
    std::unique_ptr<connector::interpreter::Module> module_;

private:
    std::vector<std::thread> threads_;
};
