#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "cmddistributor/CmdDistributor.h"
#include "cmddistributor/IIP.h"
#include "cmddistributor/IIPResult.h"
#include "iqm/plugins.h"
#include "nmutil/events.h"

namespace fake {

using cmddistributor::IIPResult;
using cmddistributor::RuntimeException;

/// A request queue that a test runs by hand on a thread of its choice, or leaves to a worker thread.
///
/// A request runs as the host interface says: through the plug-in registered for it, from `pre` to the
/// continuations.
///
/// Threads: every operation from any thread. Requests run on one thread at a time; running ones may run
/// others. The functions and `refusal` are set before.
class FakeCmdDistributor : public cmddistributor::CmdDistributor {
public:
    using IDType = foundation::msg_svc::exchange::IDType;
    using CancelStatus = zvm::TaskReference::CancelStatus;

    enum class State { Waiting, Ready, Running, Ended };
    struct Entry {
        IDType id;
        std::shared_ptr<cmddistributor::CmdRequest> request;
        cmddistributor::RunOptions options;
        std::shared_ptr<cmddistributor::PromiseDelegate> delegate;
        State state = State::Waiting;
        std::vector<std::function<void()>> continuations = {};
    };

    void enqueue(IDType id, std::shared_ptr<cmddistributor::CmdRequest> request,
                 cmddistributor::RunOptions options,
                 std::shared_ptr<cmddistributor::PromiseDelegate> delegate) override {
        if (refusal) throw RuntimeException(*refusal);
        const std::lock_guard lock(mutex_);
        all_.push_back(
            std::make_shared<Entry>(Entry{id, std::move(request), std::move(options), std::move(delegate)}));
    }
    void setReadyToExecute(IDType id) override {
        const std::lock_guard lock(mutex_);
        if (const auto entry = findLocked(id); entry && entry->state == State::Waiting)
            entry->state = State::Ready;
        changed_.notify_all();
    }
    void addContinuation(IDType id, std::function<void()> continuation) override {
        {
            const std::lock_guard lock(mutex_);
            if (const auto entry = findLocked(id)) {
                entry->continuations.push_back(std::move(continuation));
                return;
            }
        }
        continuation();
    }
    CancelStatus cancel(IDType id, bool interruptIfRunning) override {
        Pointer entry;
        bool isRunning = false;
        {
            const std::lock_guard lock(mutex_);
            entry = findLocked(id);
            if (!entry) return CancelStatus::NotFound;
            isRunning =
                std::exchange(entry->state, State::Running) == State::Running;  // nobody else takes it
        }
        if (isRunning) {
            interrupts += interruptIfRunning ? 1 : 0;
            return CancelStatus::AlreadyStarted;
        }
        finish(*entry, {id, RuntimeException(nmutil::cmddistributor::EXECUTION_CANCELLED, "NUMORA:cancelled",
                                             u"The request was taken back.")});
        return CancelStatus::Cancelled;
    }

    /// Runs the oldest request that is ready, on the calling thread. False when there is none.
    bool runNext() {
        std::unique_lock lock(mutex_);
        const Pointer entry = takeReadyLocked();
        lock.unlock();
        if (entry) run(*entry);
        return entry != nullptr;
    }
    /// Runs requests until none is ready.
    void runAll() {
        while (runNext()) continue;
    }

    /// Has a thread of its own run requests as they become ready, until `stopWorker`, which waits for it.
    void startWorker() {
        worker_ = std::jthread([this](const std::stop_token& stop) {
            while (const Pointer entry = awaitReady(stop)) run(*entry);
        });
    }
    void stopWorker() { worker_ = {}; }

    /// Lets all requests go, which may hold references to this.
    void forget() {
        std::vector<Pointer> forgotten;  // end after the lock
        const std::lock_guard lock(mutex_);
        forgotten.swap(all_);
    }

    /// What was enqueued so far, whether it has run or not.
    std::vector<Entry> enqueued() const {
        const std::lock_guard lock(mutex_);
        std::vector<Entry> entries;
        for (const Pointer& entry : all_) entries.push_back(*entry);
        return entries;
    }
    /// The request that is running, the innermost one; null when there is none. For the running code alone.
    cmddistributor::CmdRequest* runningRequest() const { return running_; }

    /// What `enqueue` throws; nothing is queued then.
    std::optional<RuntimeException> refusal;
    /// Calls a function.
    std::function<std::vector<matrix::ArrayPtr>(const cmddistributor::FEvalIIP&)> onFEval;
    /// Shows the error text of a failed request that has no callback for it.
    std::function<void(const RuntimeException&)> showError;
    std::atomic<int> interrupts{0};  ///< of the whole interpreter

private:
    using Pointer = std::shared_ptr<Entry>;

    /// The one with this id that has not ended; null when there is none.
    Pointer findLocked(IDType id) const {
        const auto found = std::ranges::find_if(
            all_, [id](const auto& entry) { return entry->id == id && entry->state != State::Ended; });
        return found == all_.end() ? nullptr : *found;
    }
    Pointer takeReadyLocked() {
        const auto found = std::ranges::find(all_, State::Ready, &Entry::state);
        if (found == all_.end()) return nullptr;
        (*found)->state = State::Running;
        return *found;
    }
    Pointer awaitReady(const std::stop_token& stop) {
        Pointer entry;
        std::unique_lock lock(mutex_);
        changed_.wait(lock, stop, [&] { return stop.stop_requested() || (entry = takeReadyLocked()); });
        return entry;
    }

    void run(Entry& entry) {
        auto* const outer = std::exchange(running_, entry.request.get());
        std::unique_ptr<IIPResult> result;
        try {
            result = resultOf(entry);
        } catch (const RuntimeException& error) {
            result = std::make_unique<IIPResult>(entry.id, error);
        } catch (const std::exception& error) {  // of the code under test: the thread lives on
            const std::string text = error.what();
            result = std::make_unique<IIPResult>(
                entry.id, RuntimeException(nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:host",
                                           std::u16string(text.begin(), text.end())));
        }
        running_ = outer;
        finish(entry, *result);
    }
    std::unique_ptr<IIPResult> resultOf(const Entry& entry) {
        const auto iip = entry.request->getIIP();
        if (const auto* call = dynamic_cast<const cmddistributor::FEvalIIP*>(iip.get()))
            return std::make_unique<cmddistributor::FEvalResult>(entry.id, boost::none, onFEval(*call));
        if (const auto* task = dynamic_cast<const cmddistributor::PackagedTaskIIP*>(iip.get())) {
            task->run();
            return std::make_unique<IIPResult>(entry.id, boost::none);
        }
        const auto plugin = iqm::PacketInfo::createPlugin({entry.id, iip}, {});
        if (!plugin) throw std::logic_error("No plug-in is registered for " + iip->pluginName());
        boost::optional<RuntimeException> failure;
        plugin->pre();
        try {
            iqm::Workspace workspace;
            plugin->execute(workspace);
        } catch (const RuntimeException& error) {
            failure = error;
            if (const auto& callback = entry.options.printableErrorCallback()) {
                callback(nmutil::io::PrintableErrorEvent(error.getText(), error));
            } else {
                showError(error);
            }
            plugin->processMFileError();
        }
        plugin->post();
        return plugin->createResult(std::move(failure));
    }
    void finish(Entry& entry, const IIPResult& result) {
        if (entry.delegate) entry.delegate->complete(result);
        std::vector<std::function<void()>> continuations;
        {
            const std::lock_guard lock(mutex_);
            entry.state = State::Ended;
            continuations.swap(entry.continuations);
        }
        for (const auto& continuation : continuations) continuation();
    }

    mutable std::mutex mutex_;
    std::condition_variable_any changed_;
    std::vector<Pointer> all_;
    cmddistributor::CmdRequest* running_ = nullptr;
    std::jthread worker_;
};

}  // namespace fake
