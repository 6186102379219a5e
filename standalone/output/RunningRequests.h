#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "cmddistributor/CmdRequest.h"
#include "cmddistributor/RunOptions.h"
#include "connector/common/ContextState.h"
#include "zvm/identities.h"

namespace standalone {

/// One request that runs. Borrows what it refers to.
struct RunningRequest {
    foundation::msg_svc::exchange::IDType id;
    const cmddistributor::CmdRequest& request;
    const cmddistributor::RunOptions& options;
    std::shared_ptr<connector::common::ContextState> context;  ///< may be null
    std::uint64_t number = 0;                                  ///< given by RunningRequests
};

/// The requests that run, one inside the other. Whose code prints, and what goes with it, is told by them.
///
/// Threads: those that hold the interpreter's lock; changed on the interpreter thread.
class RunningRequests {
public:
    void push(RunningRequest request) {
        interpreterThread_ = std::this_thread::get_id();
        request.number = ++last_;
        requests_.push_back(std::move(request));
    }
    void pop() { requests_.pop_back(); }

    /// The one that began last, or null.
    const RunningRequest* innermost() const { return requests_.empty() ? nullptr : &requests_.back(); }
    /// The one that the calling thread's code belongs to, or null. A thread that Python code has started
    /// belongs to the request that it was started by, for as long as that runs; others, as those of native
    /// code, to the outermost, not to one that runs inside it.
    const RunningRequest* ofThisThread() const {
        if (requests_.empty()) return nullptr;
        if (std::this_thread::get_id() == interpreterThread_) return &requests_.back();
        if (startedBy == 0) return &requests_.front();
        const auto found = std::ranges::find(requests_, startedBy, &RunningRequest::number);
        return found == requests_.end() ? nullptr : &*found;
    }
    /// The context of that request; may be null.
    std::shared_ptr<connector::common::ContextState> contextOfThisThread() const {
        const RunningRequest* request = ofThisThread();
        return request == nullptr ? nullptr : request->context;
    }

    /// The request that a thread belongs to which this one starts: its number, never that of another; 0 for
    /// none that is known.
    std::uint64_t numberForNewThread() const {
        if (std::this_thread::get_id() != interpreterThread_) return startedBy;
        return requests_.empty() ? 0 : requests_.back().number;
    }
    /// The calling thread was started by the request with this number.
    static void setStartedBy(std::uint64_t number) { startedBy = number; }

    /// Whether a request runs between two steps of other code, in which it has no say.
    bool isBetweenSteps() const { return isBetweenSteps_; }
    bool isBetweenStepsHere() const {
        return isBetweenSteps_ && std::this_thread::get_id() == interpreterThread_;
    }
    void setBetweenSteps(bool isBetweenSteps) { isBetweenSteps_ = isBetweenSteps; }

private:
    static inline thread_local std::uint64_t startedBy = 0;

    std::vector<RunningRequest> requests_;
    std::uint64_t last_ = 0;
    std::thread::id interpreterThread_;
    bool isBetweenSteps_ = false;
};

}  // namespace standalone
