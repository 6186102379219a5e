#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Job.h"

namespace jupyter {

/// What waits for its turn in the interpreter: cells and messages of comms, in the order in which they came.
///
/// Threads: on the kernel's executor.
class ExecutionQueue {
public:
    static constexpr std::size_t most = 1000;
    static constexpr std::size_t mostBytes = std::size_t{128} << 20;  ///< of their messages

    using JobPtr = std::unique_ptr<Job>;

    /// False when there is no room: then nothing is taken from it.
    bool add(JobPtr& job);
    /// Null when nothing waits.
    JobPtr next();
    /// The cells alone, those of one session or of all, which wait no longer.
    std::vector<JobPtr> takeCells(const std::string* session);

private:
    std::deque<JobPtr> jobs_;
    std::size_t bytes_ = 0;
};

}  // namespace jupyter
