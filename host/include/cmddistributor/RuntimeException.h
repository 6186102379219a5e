#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

namespace nmutil::cmddistributor {

/// How the interpreter stands with the request that it ran last, or how a failed request failed.
enum inExecutionStatus : std::uint32_t {
    EXECUTION_OK = 0,           ///< ended without an error
    EXECUTION_ERROR = 1,        ///< ended by an error in the code
    EXECUTION_INTERRUPTED = 2,  ///< ended by an interrupt
    EXECUTION_CANCELLED = 3,    ///< taken back before it began
};

}  // namespace nmutil::cmddistributor

namespace cmddistributor {

/// One entry of an error's call stack.
struct StackFrame {
    std::u16string file;
    std::u16string function;
    std::int32_t line = 0;
};

/// A request failed. Copyable.
class RuntimeException : public std::exception {
public:
    /// `identifier` names the kind of error, `message` is its one-line text and `text` what a user is shown.
    RuntimeException(nmutil::cmddistributor::inExecutionStatus status, std::string identifier,
                     std::u16string message, std::u16string text = {}, std::vector<StackFrame> frames = {},
                     std::vector<RuntimeException> causes = {});

    const std::string& GetID() const { return identifier_; }
    nmutil::cmddistributor::inExecutionStatus getExecutionStatus() const { return status_; }
    const std::u16string& getMessage() const { return message_; }
    const std::u16string& getText() const { return text_; }
    const std::vector<StackFrame>& getStackFrames() const { return frames_; }
    const std::vector<RuntimeException>& getCauses() const { return causes_; }
    /// The message in UTF-8.
    const char* what() const noexcept override { return what_.c_str(); }

private:
    nmutil::cmddistributor::inExecutionStatus status_;
    std::string identifier_;
    std::u16string message_;
    std::u16string text_;
    std::vector<StackFrame> frames_;
    std::vector<RuntimeException> causes_;
    std::string what_;
};

}  // namespace cmddistributor
