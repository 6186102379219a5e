#pragma once

#include <memory>

#include "foundation/msg_svc/exchange/IDType.h"
#include "zvm/ZvmID.h"

namespace cmddistributor {
class CmdDistributor;
}

namespace zvm {

/// The interpreter's virtual machine.
///
/// Threads: every operation from any thread; none blocks on running code for long.
class ZVM {
public:
    virtual ~ZVM() = default;

    virtual ZvmID id() const = 0;

    /// Whether the interpreter takes requests. Once false, it stays false.
    virtual bool isAvailable() const = 0;

    /// Interrupts the code that is running, or the prompt at which it waits. An idle interpreter ignores it.
    /// Blocks: at a prompt until the code has ended or waits again, so that the next request finds it so;
    /// half a second at most.
    virtual void interrupt() = 0;

    /// Interrupts on behalf of one request: running code is interrupted if it belongs to the request, and a
    /// request that still waits in the queue is taken out and fails with EXECUTION_CANCELLED. Code of other
    /// requests goes on.
    virtual void interrupt(const foundation::msg_svc::exchange::IDType& request) = 0;

    /// Takes the requests. Never null.
    virtual std::shared_ptr<cmddistributor::CmdDistributor> getCmdDistributor() = 0;
};

/// The process's session with its interpreters.
class Session {
public:
    virtual ~Session() = default;
    /// Whether the process still works, that is, has not begun to shut down.
    virtual bool isActive() const = 0;
};

}  // namespace zvm
