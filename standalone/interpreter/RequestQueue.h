#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "cmddistributor/CmdDistributor.h"
#include "connector/ThreadSafety.h"
#include "nmutil/prompt/InputRequester.h"

namespace standalone {

/// One request on its way through the queue.
struct QueuedRequest {
    foundation::msg_svc::exchange::IDType id;
    std::shared_ptr<cmddistributor::CmdRequest> request;
    cmddistributor::RunOptions options;
    std::shared_ptr<cmddistributor::PromiseDelegate> delegate;
    bool isReady = false;
};

/// The requests that wait for the interpreter thread, and what it sleeps on between them.
///
///     enqueue -> queued -> setReadyToExecute -> ready -> take -> running -> finish -> ended
///                   \__________ cancel, stop __________/                        (delegate, continuations)
///
/// Threads: the operations of CmdDistributor from any thread; `take`, `tryTake` and `finish` from the
/// interpreter thread, without the interpreter's lock where they wait. Locks: mutex_, which is a leaf:
/// delegates, continuations and the interrupt callback run without it.
class RequestQueue : public cmddistributor::CmdDistributor {
public:
    using IDType = foundation::msg_svc::exchange::IDType;
    using InputRequester = nmutil::prompt::InputRequester;

    /// How the queue reaches the interpreter thread while code runs. Called with the queue's mutex held.
    struct Signals {
        /// Interrupts the code with this number, if it still runs.
        std::function<void(std::uint32_t code)> interrupt;
        /// Makes the running code let requests run between two of its steps.
        std::function<void()> requests;
    };

    explicit RequestQueue(Signals signals, std::size_t capacity = 10'000);

    void enqueue(IDType id, std::shared_ptr<cmddistributor::CmdRequest> request,
                 cmddistributor::RunOptions options,
                 std::shared_ptr<cmddistributor::PromiseDelegate> delegate) override EXCLUDES(mutex_);
    void setReadyToExecute(IDType id) override EXCLUDES(mutex_);
    void addContinuation(IDType id, std::function<void()> continuation) override EXCLUDES(mutex_);
    zvm::TaskReference::CancelStatus cancel(IDType id, bool interruptIfRunning) override EXCLUDES(mutex_);

    /// The next request that may run at `prompt`, or null.
    std::unique_ptr<QueuedRequest> tryTake(InputRequester prompt) EXCLUDES(mutex_);

    /// The same, but waits for one. Null when the queue was nudged or has been stopped, and after `limit`.
    /// Blocks: until then; it sleeps after the first twenty microseconds.
    std::unique_ptr<QueuedRequest> take(InputRequester prompt,
                                        std::optional<std::chrono::milliseconds> limit = {}) EXCLUDES(mutex_);

    /// Ends a request that was taken: completes its delegate, then runs its continuations.
    void finish(const QueuedRequest& request, const cmddistributor::IIPResult& result) EXCLUDES(mutex_);

    /// Marks that code with this number begins for a request, or for none when `id` is 0; code may begin
    /// inside other code. Interrupts are noted until signals can reach it.
    void beginCode(IDType id, std::uint32_t code) EXCLUDES(mutex_);
    /// Marks that signals can reach it. True when it was interrupted before.
    bool openToSignals() EXCLUDES(mutex_);
    /// Marks that the code that began last has ended. True when the code around it is to be interrupted.
    bool endCode() EXCLUDES(mutex_);

    /// Interrupts all code that runs, the innermost first.  Threads: any.
    void interrupt() EXCLUDES(mutex_);

    /// Makes a `take` that waits, or else the next one, return.  Threads: any.
    void nudge() EXCLUDES(mutex_);

    /// Refuses requests from now on and fails those that wait with EXECUTION_CANCELLED.  Threads: any.
    void stop() EXCLUDES(mutex_);
    bool isStopped() const EXCLUDES(mutex_);

private:
    using Continuations = std::vector<std::function<void()>>;
    struct Entry {
        std::unique_ptr<QueuedRequest> request;
        Continuations continuations;
    };
    struct Running {
        IDType id;
        Continuations continuations;
        bool isInterrupted = false;  // before its code began
    };
    struct Code {
        IDType id;
        std::uint32_t number;
        bool isInterrupted = false;  // to be acted on when it is open to signals, and the innermost
        bool isOpenToSignals = false;
    };

    std::unique_ptr<QueuedRequest> takeLocked(InputRequester prompt) REQUIRES(mutex_);
    std::deque<Entry>::iterator findLocked(IDType id) REQUIRES(mutex_);
    std::vector<Running>::iterator findRunningLocked(IDType id) REQUIRES(mutex_);
    void interruptLocked(IDType id) REQUIRES(mutex_);
    static void end(const QueuedRequest& request, Continuations& continuations,
                    const cmddistributor::IIPResult& result);
    static void endCancelled(Entry& entry);

    const Signals signals_;
    const std::size_t capacity_;

    mutable connector::Mutex mutex_;
    std::condition_variable changed_;
    std::atomic<unsigned> changes_{0};  // counts notifications; changed under mutex_, read without it
    std::deque<Entry> entries_ GUARDED_BY(mutex_);
    std::vector<Running> running_
        GUARDED_BY(mutex_);                       // innermost last: requests run inside others at prompts
    std::vector<Code> codes_ GUARDED_BY(mutex_);  // innermost last
    bool isNudged_ GUARDED_BY(mutex_) = false;
    bool isStopped_ GUARDED_BY(mutex_) = false;
};

}  // namespace standalone
