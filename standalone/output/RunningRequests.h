#pragma once

#include <thread>
#include <vector>

#include "cmddistributor/CmdRequest.h"
#include "cmddistributor/RunOptions.h"
#include "zvm/identities.h"

namespace standalone {

/// One request that runs. Borrows what it refers to.
struct RunningRequest {
    foundation::msg_svc::exchange::IDType id;
    const cmddistributor::CmdRequest& request;
    const cmddistributor::RunOptions& options;
};

/// The requests that run, one inside the other. Whose code prints, and what goes with it, is told by them.
///
/// Threads: those that hold the interpreter's lock; changed on the interpreter thread.
class RunningRequests {
public:
    void push(const RunningRequest& request) {
        interpreterThread_ = std::this_thread::get_id();
        requests_.push_back(request);
    }
    void pop() { requests_.pop_back(); }

    /// The one that began last, or null.
    const RunningRequest* innermost() const { return requests_.empty() ? nullptr : &requests_.back(); }
    /// The one that the calling thread's code belongs to, or null. Other threads of Python code belong to the
    /// outermost, not to one that runs inside it.
    const RunningRequest* ofThisThread() const {
        if (requests_.empty()) return nullptr;
        const bool isInterpreterThread = std::this_thread::get_id() == interpreterThread_;
        return isInterpreterThread ? &requests_.back() : &requests_.front();
    }

    /// Whether a request runs between two steps of other code, in which it has no say.
    bool isBetweenSteps() const { return isBetweenSteps_; }
    bool isBetweenStepsHere() const {
        return isBetweenSteps_ && std::this_thread::get_id() == interpreterThread_;
    }
    void setBetweenSteps(bool isBetweenSteps) { isBetweenSteps_ = isBetweenSteps; }

private:
    std::vector<RunningRequest> requests_;
    std::thread::id interpreterThread_;
    bool isBetweenSteps_ = false;
};

}  // namespace standalone
