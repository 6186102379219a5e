#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "cmddistributor/CmdRequest.h"
#include "cmddistributor/RunOptions.h"
#include "connector/ThreadSafety.h"
#include "connector/common/ContextState.h"
#include "connector/common/RequestOrigin.h"
#include "python/InterpreterServices.h"
#include "python/capability.h"
#include "python/interpreterLock.h"
#include "zvm/identities.h"

namespace standalone {

/// One request that runs. Borrows what it refers to.
struct RunningRequest {
    foundation::msg_svc::exchange::IDType id;
    cmddistributor::CmdRequest& request;
    const cmddistributor::RunOptions& options;
    std::shared_ptr<connector::common::ContextState> context;       ///< may be null
    std::uint64_t number = 0;                                       ///< given by RunningRequests
    std::shared_ptr<connector::common::ClientPace> pace = nullptr;  ///< of the context's origin
    std::shared_ptr<const PrintedTaker> printedTaker = nullptr;     ///< instead of a sink
    std::chrono::steady_clock::time_point since = std::chrono::steady_clock::now();
};

/// The requests that run, one inside the other. Whose code prints, and what goes with it, is told by them.
///
/// Threads: those that hold the interpreter's lock, but for `paceOfOutermost`; changed on the interpreter
/// thread.  Locks: mutex_, a leaf, for the one thing that is asked without the interpreter's lock.
class RunningRequests {
public:
    using Pace = std::shared_ptr<connector::common::ClientPace>;

    void push(RunningRequest request) {
        interpreterThread_ = std::this_thread::get_id();
        request.number = ++last_;
        const auto origin =
            request.context ? connector::common::RequestOrigin::of(*request.context) : nullptr;
        if (origin) request.pace = origin->pace;
        if (requests_.empty()) setPaceOfOutermost(request.pace);
        requests_.push_back(std::move(request));
    }
    void pop() {
        requests_.pop_back();
        if (requests_.empty()) setPaceOfOutermost(nullptr);
    }

    /// The one that began last, or null.
    const RunningRequest* innermost() const { return requests_.empty() ? nullptr : &requests_.back(); }
    /// The one that began first, or null.
    const RunningRequest* outermost() const { return requests_.empty() ? nullptr : &requests_.front(); }
    /// The one that the calling thread's code belongs to, or null. A thread that Python code has started
    /// belongs to the request that it was started by, for as long as that runs; others, as those of native
    /// code, to the outermost, not to one that runs inside it.
    /// Whoever delivers what native code has printed does so for the outermost, too.
    const RunningRequest* ofThisThread() const {
        if (requests_.empty()) return nullptr;
        const bool isInterpreterThread = std::this_thread::get_id() == interpreterThread_;
        if (KeepsInterpreterLock::isHere() && (isBetweenSteps_ || !isInterpreterThread)) {
            return &requests_.front();
        }
        if (isInterpreterThread) return &requests_.back();
        if (starter.number == 0) return &requests_.front();
        const auto found = std::ranges::find(requests_, starter.number, &RunningRequest::number);
        return found == requests_.end() ? nullptr : &*found;
    }
    /// Whether the calling thread was started by code that was streamed and has ended: what it prints is
    /// nobody's, above all not of a captured evaluation that runs now.
    bool isLateThreadOfStream() const {
        return starter.isStreamed && !KeepsInterpreterLock::isHere() && ofThisThread() == nullptr;
    }
    /// The context of that request; may be null.
    std::shared_ptr<connector::common::ContextState> contextOfThisThread() const {
        const RunningRequest* request = ofThisThread();
        return request == nullptr ? nullptr : request->context;
    }

    /// The name of that request; empty where it has none.
    std::string nameOfThisThread() const {
        const auto context = contextOfThisThread();
        const auto origin = context ? connector::common::RequestOrigin::of(*context) : nullptr;
        return origin ? origin->request : std::string();
    }

    /// Has what the request that began last prints taken by a function.
    void takePrinted(std::shared_ptr<const PrintedTaker> taker) {
        if (!requests_.empty()) requests_.back().printedTaker = std::move(taker);
    }
    /// That of the request of this thread, or null.
    std::shared_ptr<const PrintedTaker> printedTakerOfThisThread() const {
        const RunningRequest* request = ofThisThread();
        return request == nullptr ? nullptr : request->printedTaker;
    }

    /// Whether the client has the capability whose request this thread belongs to, or has been started by.
    bool hasCapability(std::string_view capability) const {
        if (const RunningRequest* request = ofThisThread()) {
            return standalone::hasCapability(&request->options, capability);
        }
        return std::ranges::find(starter.capabilities, capability) != starter.capabilities.end();
    }

    /// For the threads that this one starts.
    ThreadStarter starterOfNewThread() const {
        if (std::this_thread::get_id() != interpreterThread_) return starter;
        if (requests_.empty()) return {};
        const auto& options = requests_.back().options;
        const auto& has = options.capabilities();
        return {requests_.back().number, options.getOutSink() != nullptr,
                has ? std::vector<std::string>(has->begin(), has->end()) : std::vector<std::string>()};
    }
    static void setStarter(const ThreadStarter& ofThisThread) { starter = ofThisThread; }

    /// Of the client that the calling thread's code waits for when that is behind; null where it waits for
    /// none, as between two steps of other code.
    Pace paceOfThisThread() const {
        if (isBetweenStepsHere()) return nullptr;
        const RunningRequest* request = ofThisThread();
        return request == nullptr ? nullptr : request->pace;
    }
    /// Of the client that gets what native code prints; may be null.  Threads: any.
    Pace paceOfOutermost() const CONNECTOR_EXCLUDES(mutex_) {
        connector::MutexLock lock(mutex_);
        return paceOfOutermost_;
    }

    /// Whether a request runs between two steps of other code, in which it has no say.
    bool isBetweenSteps() const { return isBetweenSteps_; }
    bool isBetweenStepsHere() const {
        return isBetweenSteps_ && std::this_thread::get_id() == interpreterThread_;
    }
    void setBetweenSteps(bool isBetweenSteps) { isBetweenSteps_ = isBetweenSteps; }

private:
    void setPaceOfOutermost(Pace pace) CONNECTOR_EXCLUDES(mutex_) {
        connector::MutexLock lock(mutex_);
        paceOfOutermost_.swap(pace);  // the old one goes without the lock
    }

    static inline thread_local ThreadStarter starter{};

    std::vector<RunningRequest> requests_;
    std::uint64_t last_ = 0;
    std::thread::id interpreterThread_;
    bool isBetweenSteps_ = false;

    mutable connector::Mutex mutex_;
    Pace paceOfOutermost_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace standalone
