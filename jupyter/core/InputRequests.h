#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Lifetime.h"
#include "Publisher.h"
#include "Request.h"
#include "jupyter/Interpreter.h"

namespace jupyter {

/// Takes the questions of running code to the client of the cell, and its answers to the code. An answer is
/// taken once, while its question is open, from the client that was asked.
///
/// Threads: on the kernel's executor.
class InputRequests {
public:
    InputRequests(Interpreter& interpreter, Publisher& publisher)
        : interpreter_(interpreter), publisher_(publisher) {}

    /// An event `input` of the cell. Who does not allow input gives the end of input as the answer.
    void ask(const RequestPtr& cell, bool allowsInput, std::string_view event);
    /// An input_reply. `tell` is given a line for people when it could not be typed.
    void answer(const Request& reply, std::function<void(const std::string&)> tell);
    /// The cell has ended.
    void forget() { open_.reset(); }

private:
    struct Open {
        Route route;
        std::string id{};  // of the input_request
        std::uint64_t number = 0;
    };

    void type(const Open& question, std::string text, std::function<void(const std::string&)> tell);

    Interpreter& interpreter_;
    Publisher& publisher_;
    std::optional<Open> open_;
    const Lifetime lifetime_;
};

}  // namespace jupyter
