#include "ExecutionQueue.h"

#include <utility>

namespace jupyter {

namespace {

std::size_t sizeOf(const Job& job) { return bytesOf(job.request()->message); }

}  // namespace

bool ExecutionQueue::add(JobPtr& job) {
    const std::size_t bytes = sizeOf(*job);
    if (jobs_.size() >= most || (!jobs_.empty() && bytes_ + bytes > mostBytes)) return false;
    bytes_ += bytes;
    jobs_.push_back(std::move(job));
    return true;
}

ExecutionQueue::JobPtr ExecutionQueue::next() {
    if (jobs_.empty()) return nullptr;
    JobPtr job = std::move(jobs_.front());
    jobs_.pop_front();
    bytes_ -= sizeOf(*job);
    return job;
}

std::vector<ExecutionQueue::JobPtr> ExecutionQueue::takeCells(const std::string* session) {
    std::vector<JobPtr> cells;
    for (auto& job : std::exchange(jobs_, {})) {
        if (job->isCell() && (session == nullptr || job->request()->session == *session)) {
            bytes_ -= sizeOf(*job);
            cells.push_back(std::move(job));
        } else {
            jobs_.push_back(std::move(job));
        }
    }
    return cells;
}

}  // namespace jupyter
