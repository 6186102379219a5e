#pragma once

#include <functional>
#include <memory>

#include "cmddistributor/CmdRequest.h"
#include "cmddistributor/PromiseDelegate.h"
#include "cmddistributor/RunOptions.h"
#include "zvm/ZVM.h"
#include "zvm/identities.h"

namespace cmddistributor {

/// Queues requests for the interpreter thread.
///
/// Threads: every operation from any thread; none blocks on running code.
class CmdDistributor {
public:
    virtual ~CmdDistributor() = default;

    /// Queues a request under `id`. It runs once it is set ready and the interpreter's state allows it.
    /// `delegate` may be null, when nobody waits for the end.
    /// Throws: RuntimeException, when the queue is full or the interpreter has stopped (nothing is queued).
    virtual void enqueue(foundation::msg_svc::exchange::IDType id, std::shared_ptr<CmdRequest> request,
                         RunOptions options, std::shared_ptr<PromiseDelegate> delegate) = 0;

    /// The operations of a task reference, for the request queued under `id`; see zvm::TaskReference.
    virtual void setReadyToExecute(foundation::msg_svc::exchange::IDType id) = 0;
    virtual void addContinuation(foundation::msg_svc::exchange::IDType id,
                                 std::function<void()> continuation) = 0;
    virtual zvm::TaskReference::CancelStatus cancel(foundation::msg_svc::exchange::IDType id,
                                                    bool interruptIfRunning) = 0;
};

}  // namespace cmddistributor
