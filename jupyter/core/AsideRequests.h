#pragma once

#include <cstddef>
#include <functional>

#include "Lifetime.h"
#include "Publisher.h"
#include "Request.h"
#include "jupyter/Interpreter.h"

namespace jupyter {

/// Requests that functions of the interpreter's answer beside the code that runs: complete_request,
/// inspect_request, is_complete_request and comm_info_request. Positions in code are code points here as they
/// are there.
///
/// Threads: on the kernel's executor.
class AsideRequests {
public:
    static constexpr std::size_t most = 100;  ///< that are not answered yet

    AsideRequests(Interpreter& interpreter, Publisher& publisher)
        : interpreter_(interpreter), publisher_(publisher) {}

    static bool knows(const std::string& type);
    /// Replies, and then calls `replied`, perhaps before it returns.
    /// Throws: dispatch::BadMessage.
    void answer(const RequestPtr& request, std::function<void()> replied);

private:
    void refuse(const Request& request, const std::string& reason);

    Interpreter& interpreter_;
    Publisher& publisher_;
    std::size_t underWay_ = 0;
    const Lifetime lifetime_;
};

}  // namespace jupyter
