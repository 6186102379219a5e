#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Publisher.h"
#include "jupyter/Interpreter.h"

namespace jupyter {

/// Tells clients on iopub what code prints and shows. Text and bundles are spliced into messages as they are.
///
/// Threads: on the kernel's executor.
class CellOutput {
public:
    CellOutput(Publisher& publisher, std::string parent)
        : publisher_(publisher), parent_(std::move(parent)) {}

    /// The number of the results; without it they are not shown.
    void showResults(std::uint64_t count) { count_ = count; }
    /// Whether an event that other clients' code has caused is for notebooks, too: it changes what they show.
    static bool concernsAll(const InterpreterEvent& event);
    /// True when the event was output.
    bool take(const InterpreterEvent& event);
    /// A line of the kernel's own on standard error.
    void tell(const std::string& line);
    void fail(ErrorText error);

    /// The last one.
    const std::optional<ErrorText>& error() const { return error_; }
    /// Of the execute_reply, as JSON with commas between them.
    const std::string& payloads() const { return payloads_; }

private:
    using Take = void (CellOutput::*)(std::string_view data);
    static Take takerOf(std::string_view channel);

    void takeOutput(std::string_view data);
    void takeErrorText(std::string_view data);
    void takeClear(std::string_view data);
    void takeWindowClear(std::string_view data);
    void takeWindowHome(std::string_view data);
    void takeDisplay(std::string_view data);
    void takeFigure(std::string_view data);
    void takeError(std::string_view data);
    void takePayload(std::string_view data);
    void takeComm(std::string_view data);
    void clear(bool wait);

    Publisher& publisher_;
    const std::string parent_;
    std::optional<std::uint64_t> count_;
    std::optional<ErrorText> error_;
    std::string payloads_;
};

}  // namespace jupyter
