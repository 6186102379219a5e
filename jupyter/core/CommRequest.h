#pragma once

#include <string>

#include "Job.h"
#include "Lifetime.h"
#include "jupyter/Interpreter.h"

namespace jupyter {

/// A message of a comm: comm_open, comm_msg or comm_close. Its handler is a function of the interpreter's,
/// which runs in its turn among the cells. It has no reply.
///
/// Threads: on the kernel's executor.
class CommRequest : public Job {
public:
    /// Throws: dispatch::BadMessage.
    CommRequest(Interpreter& interpreter, Publisher& publisher, RequestPtr request, Ended ended);

    bool isCell() const override { return false; }
    void begin() override;

private:
    Interpreter& interpreter_;
    const Ended ended_;
    std::string arguments_;
    const Lifetime lifetime_;
};

}  // namespace jupyter
