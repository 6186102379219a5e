#pragma once

#include <memory>

#include "connector/Future.h"
#include "connector/Message.h"
#include "connector/ServiceProviderAPI.h"

namespace connector::interpreter::v1 {

class Eval;
class FEval;
class Interrupt;

/// Answers the requests of the interpreter service, each with the response of its own class.
///
/// Threads: any. Several requests may be handled at a time.
class InterpreterServiceProvider : public connector::ServiceProviderAPI<InterpreterServiceProvider>,
                                   public std::enable_shared_from_this<InterpreterServiceProvider> {
public:
    using connector::ServiceProviderAPI<InterpreterServiceProvider>::handle;

    // Their order is the order of the virtual table, which compiled providers rely on.

    /// Stops what runs and releases the requests that wait. Answered with an InterruptResponse.
    virtual connector::Future<std::unique_ptr<connector::Message>> handle(
        std::unique_ptr<Interrupt>&& message) = 0;
    /// Calls a function. Answered with an FEvalResponse.
    virtual connector::Future<std::unique_ptr<connector::Message>> handle(
        std::unique_ptr<FEval>&& message) = 0;
    /// Runs code. Answered with an EvalResponse.
    virtual connector::Future<std::unique_ptr<connector::Message>> handle(
        std::unique_ptr<Eval>&& message) = 0;
};

}  // namespace connector::interpreter::v1
