#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "cmddistributor/CmdDistributor.h"
#include "connector/Semaphore.h"
#include "connector/ThreadSafety.h"
#include "nmutil/prompt/InputRequester.h"
#include "thread/CodeStack.h"

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
/// An interrupt is a mark on what it is meant for: on a request that was taken until its code begins, then on
/// that code (CodeStack.h).
///
/// Threads: the operations of CmdDistributor from any thread; `take`, `tryTake`, `finish` and what says so of
/// itself from the interpreter thread, without the interpreter's lock where they wait. Locks: mutex_, which
/// is a leaf: delegates and continuations run without it.
class RequestQueue : public cmddistributor::CmdDistributor {
public:
    using IDType = foundation::msg_svc::exchange::IDType;
    using InputRequester = nmutil::prompt::InputRequester;

    /// How the queue reaches the interpreter thread while code runs. Called with the queue's mutex held.
    struct Signals {
        /// Makes the thread check between two steps of its code whether there is an interrupt to take or a
        /// request to run; now, and again and again until `stop`.
        std::function<void()> start;
        std::function<void()> stop;
    };

    explicit RequestQueue(Signals signals, std::size_t capacity = 10'000);

    void enqueue(IDType id, std::shared_ptr<cmddistributor::CmdRequest> request,
                 cmddistributor::RunOptions options,
                 std::shared_ptr<cmddistributor::PromiseDelegate> delegate) override
        CONNECTOR_EXCLUDES(mutex_);
    void setReadyToExecute(IDType id) override CONNECTOR_EXCLUDES(mutex_);
    void addContinuation(IDType id, std::function<void()> continuation) override CONNECTOR_EXCLUDES(mutex_);
    zvm::TaskReference::CancelStatus cancel(IDType id, bool interruptIfRunning) override
        CONNECTOR_EXCLUDES(mutex_);

    /// The next request that may run at `prompt`, or null.
    std::unique_ptr<QueuedRequest> tryTake(InputRequester prompt) CONNECTOR_EXCLUDES(mutex_);

    /// The same, but waits for one. Null when the code that waits at the prompt is interrupted, when the
    /// queue has been stopped, and after `limit`. Blocks: until then; it sleeps at once where the process has
    /// one processor, and elsewhere after twenty microseconds.
    std::unique_ptr<QueuedRequest> take(InputRequester prompt,
                                        std::optional<std::chrono::milliseconds> limit = {})
        CONNECTOR_EXCLUDES(mutex_);

    /// Ends a request that was taken: completes its delegate, then runs its continuations.
    void finish(const QueuedRequest& request, const cmddistributor::IIPResult& result)
        CONNECTOR_EXCLUDES(mutex_);

    /// Marks that code begins for a request, or for none when `id` is 0; code may begin inside other code.
    /// What has been asked for by then of the request is meant for this code.  Threads: the interpreter's.
    void beginCode(IDType id) CONNECTOR_EXCLUDES(mutex_);
    /// Marks that the code that began last can take its interrupts from now on.  Threads: the interpreter's.
    void openCode() CONNECTOR_EXCLUDES(mutex_);
    /// Marks that it takes none from now on.  Threads: the interpreter's.
    void closeCode() CONNECTOR_EXCLUDES(mutex_);
    /// Marks that it has ended, with whatever it has not taken.  Threads: the interpreter's.
    void endCode() CONNECTOR_EXCLUDES(mutex_);
    /// Marks that the innermost code waits at a prompt, or no longer does: also because it has taken an
    /// interrupt, until this says otherwise.  Threads: the interpreter's.
    void setAtPrompt(bool isAtPrompt) CONNECTOR_EXCLUDES(mutex_);

    /// Interrupts all requests that have been taken, and their code.  Threads: any.
    void interrupt() CONNECTOR_EXCLUDES(mutex_);
    /// Waits until code that waits at a prompt has taken its interrupt, and has ended or waits again: what a
    /// client sends next is then meant for what it finds.  Threads: any but the interpreter's.
    /// Blocks: until then, for `limit` at most.
    void awaitInterrupted(std::chrono::milliseconds limit) CONNECTOR_EXCLUDES(mutex_);
    /// Takes the interrupt of the innermost code. False when there is none, or it may not be taken now.
    /// Threads: the interpreter's.
    bool takeInterrupt() CONNECTOR_EXCLUDES(mutex_);
    /// Gives back the interrupt that the innermost code took last, because it had no effect.
    /// Threads: the interpreter's.
    void returnInterrupt() CONNECTOR_EXCLUDES(mutex_);
    /// Takes back what has not been taken. True when there was something.  Threads: any.
    bool clearInterrupts() CONNECTOR_EXCLUDES(mutex_);
    bool isInterrupted() const CONNECTOR_EXCLUDES(mutex_);
    /// Lets interrupts be taken, or makes them wait. Returns the previous setting.  Threads: any.
    bool setInterruptEnabled(bool isEnabled) CONNECTOR_EXCLUDES(mutex_);

    /// Refuses requests from now on and fails those that wait with EXECUTION_CANCELLED.  Threads: any.
    void stop() CONNECTOR_EXCLUDES(mutex_);
    bool isStopped() const CONNECTOR_EXCLUDES(mutex_);

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

    std::unique_ptr<QueuedRequest> takeLocked(InputRequester prompt) CONNECTOR_REQUIRES(mutex_);
    std::deque<Entry>::iterator findLocked(IDType id) CONNECTOR_REQUIRES(mutex_);
    std::vector<Running>::iterator findRunningLocked(IDType id) CONNECTOR_REQUIRES(mutex_);
    void interruptLocked(Running& running) CONNECTOR_REQUIRES(mutex_);
    Entry removeLocked(std::deque<Entry>::iterator found) CONNECTOR_REQUIRES(mutex_);
    bool isSignalWantedLocked() const CONNECTOR_REQUIRES(mutex_);
    void signalLocked() CONNECTOR_REQUIRES(mutex_);
    void stopSignalsLocked() CONNECTOR_REQUIRES(mutex_);
    void wakeLocked() CONNECTOR_REQUIRES(mutex_);
    static void end(const QueuedRequest& request, Continuations& continuations,
                    const cmddistributor::IIPResult& result);
    static void endCancelled(Entry& entry);

    const Signals signals_;
    const std::size_t capacity_;
    const bool hasProcessors_;  // several, when it was made

    mutable connector::Mutex mutex_;
    connector::Semaphore changed_;  // posted by whoever takes `isWaiting_` away
    bool isWaiting_ CONNECTOR_GUARDED_BY(mutex_) = false;
    std::atomic<unsigned> changes_{0};  // counts reasons to wake; changed under mutex_, read without it
    std::deque<Entry> entries_ CONNECTOR_GUARDED_BY(mutex_);
    std::vector<Running> running_
        CONNECTOR_GUARDED_BY(mutex_);  // innermost last: requests run inside others at prompts
    CodeStack codes_ CONNECTOR_GUARDED_BY(mutex_);
    std::size_t readyForRunningCode_ CONNECTOR_GUARDED_BY(mutex_) = 0;  // of the entries
    bool isSignalling_ CONNECTOR_GUARDED_BY(mutex_) = false;            // signals are being sent
    std::condition_variable promptChanged_;  // code ended, or begins or stops to wait at a prompt
    bool isStopped_ CONNECTOR_GUARDED_BY(mutex_) = false;
};

}  // namespace standalone
