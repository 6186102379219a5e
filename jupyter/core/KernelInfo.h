#pragma once

#include <string>
#include <vector>

#include "Lifetime.h"
#include "Publisher.h"
#include "Request.h"
#include "jupyter/Executor.h"
#include "jupyter/Interpreter.h"

namespace jupyter {

/// Answers kernel_info_requests. The interpreter is asked for Python's version with the first one; who comes
/// before it has answered waits, for a second at most.
///
/// Threads: on the kernel's executor.
class KernelInfo {
public:
    KernelInfo(Executor& executor, Interpreter& interpreter)
        : executor_(executor), interpreter_(interpreter) {}

    using Answered = std::function<void(Publisher::Members)>;
    void ask(Answered answered);

private:
    void askVersion();
    void answerAll();
    Publisher::Members content() const;

    Executor& executor_;
    Interpreter& interpreter_;
    enum class State { Unknown, Asked, Known } state_ = State::Unknown;
    std::string version_ = "3";
    std::vector<Answered> waiting_;
    const Lifetime lifetime_;
};

}  // namespace jupyter
