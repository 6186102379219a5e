#pragma once

#include <condition_variable>
#include <optional>
#include <thread>

#include "cmddistributor/CmdDistributor.h"
#include "cmddistributor/IIP.h"
#include "connector/ThreadSafety.h"

namespace fake {

/// A request queue that a test runs by hand on a thread of its choice, or leaves to a worker thread.
///
/// A request runs as the host interface says: through the plug-in registered for it, from `pre` to the
/// continuations.
///
/// Threads: every operation from any thread. Requests run on one thread at a time; running ones may run
/// others.
class FakeCmdDistributor : public cmddistributor::CmdDistributor {
public:
    using IDType = foundation::msg_svc::exchange::IDType;
    using CancelStatus = zvm::TaskReference::CancelStatus;
    using When = std::optional<cmddistributor::WhenToDequeue>;

    struct Entry {
        IDType id;
        std::shared_ptr<cmddistributor::CmdRequest> request;
        cmddistributor::RunOptions options;
        std::shared_ptr<cmddistributor::PromiseDelegate> delegate;
    };

    /// Shows the error text of a failed request that has no callback for it.
    using ShowError = std::function<void(const cmddistributor::RuntimeException&)>;
    explicit FakeCmdDistributor(ShowError showError) : showError_(std::move(showError)) {}
    ~FakeCmdDistributor() override { stopWorker(); }

    void enqueue(IDType id, std::shared_ptr<cmddistributor::CmdRequest> request,
                 cmddistributor::RunOptions options,
                 std::shared_ptr<cmddistributor::PromiseDelegate> delegate) override EXCLUDES(mutex_);
    void setReadyToExecute(IDType id) override EXCLUDES(mutex_);
    void addContinuation(IDType id, std::function<void()> continuation) override EXCLUDES(mutex_);
    CancelStatus cancel(IDType id, bool interruptIfRunning) override EXCLUDES(mutex_);

    /// Makes `enqueue` throw from now on; nothing is queued then.
    void refuse(cmddistributor::RuntimeException reason) EXCLUDES(mutex_);

    /// Runs the oldest request that is ready, of those with the dequeue value `when` if one is given, on the
    /// calling thread. False when there is none.
    bool runNext(When when = {}) EXCLUDES(mutex_);
    /// Runs requests until none is ready.
    void runAll() {
        while (runNext()) continue;
    }

    /// Has a thread of its own run requests as they become ready, until `stopWorker`, which waits for it.
    void startWorker();
    void stopWorker() EXCLUDES(mutex_);

    /// Lets all requests go, which may hold references to this.
    void forget() EXCLUDES(mutex_);

    /// What was enqueued so far, whether it has run or not.
    std::vector<Entry> enqueued() const EXCLUDES(mutex_);
    /// The request that is running, the innermost one; null when there is none. For the running code alone.
    cmddistributor::CmdRequest* runningRequest() const { return running_; }
    /// Calls a function; without it, functions return nothing.
    std::function<std::vector<matrix::ArrayPtr>(const cmddistributor::FEvalIIP&)> onFEval;
    /// Called when a running request is cancelled with its interruption wanted.
    std::function<void()> onInterrupt;

private:
    enum class State { Waiting, Ready, Running, Ended };
    struct Queued : Entry {
        State state = State::Waiting;
        std::vector<std::function<void()>> continuations;
    };
    using Pointer = std::shared_ptr<Queued>;

    /// The one with this id that has not ended; null when there is none.
    Pointer findLocked(IDType id) const REQUIRES(mutex_);
    Pointer takeReadyLocked(When when) REQUIRES(mutex_);
    void runWorker() EXCLUDES(mutex_);
    void run(const Pointer& entry) EXCLUDES(mutex_);
    std::unique_ptr<cmddistributor::IIPResult> resultOf(const Entry& entry);
    std::unique_ptr<cmddistributor::IIPResult> resultOfPlugin(const Entry& entry);
    void finish(const Pointer& entry, const cmddistributor::IIPResult& result) EXCLUDES(mutex_);

    const ShowError showError_;
    mutable connector::Mutex mutex_;
    std::condition_variable changed_;
    std::vector<Pointer> all_ GUARDED_BY(mutex_);
    std::optional<cmddistributor::RuntimeException> refusal_ GUARDED_BY(mutex_);
    bool isStopping_ GUARDED_BY(mutex_) = false;
    cmddistributor::CmdRequest* running_ = nullptr;
    std::thread worker_;
};

}  // namespace fake
