#pragma once

#include <cstdint>
#include <memory>

#include "connector/interpreter/v1/InterpreterServiceProvider.h"

namespace connector::interpreter::v1 {

/// Answers the requests of the interpreter service without an interpreter, always in the same way, so that
/// clients and the message service can be tried where none runs.
///
/// Threads: every operation from any thread.  Blocks: never; each future has its value already.
class MockInterpreterServiceProvider : public InterpreterServiceProvider {
public:
    /// The largest number of results of a function call: their text has the 16 MiB that a message may have.
    static constexpr std::int32_t maxNargout = (1 << 23) - 1;

    MockInterpreterServiceProvider() = default;
    ~MockInterpreterServiceProvider() override = default;

    using InterpreterServiceProvider::handle;
    /// Does nothing.
    connector::Future<std::unique_ptr<connector::Message>> handle(
        std::unique_ptr<Interrupt>&& message) override;
    /// Results in "{}" once per wanted result, in brackets and with nothing in between; none when fewer than
    /// 0 are wanted. Wanting more than maxNargout is a fault.
    connector::Future<std::unique_ptr<connector::Message>> handle(std::unique_ptr<FEval>&& message) override;
    /// Prints "mock output".
    connector::Future<std::unique_ptr<connector::Message>> handle(std::unique_ptr<Eval>&& message) override;
};

}  // namespace connector::interpreter::v1
