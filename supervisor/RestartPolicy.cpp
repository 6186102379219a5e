#include "supervisor/RestartPolicy.h"

namespace supervisor {

void RestartPolicy::noteBadEnd() {
    ends_.push_back(now_());
    if (ends_.size() > limit) ends_.pop_front();
    hasFailed_ = hasFailed_ || (ends_.size() == limit && ends_.back() - ends_.front() < period);
}

void RestartPolicy::reset() {
    ends_.clear();
    hasFailed_ = false;
}

}  // namespace supervisor
