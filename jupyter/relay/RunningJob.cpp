#include "relay/RunningJob.h"

#include <utility>

namespace jupyter {

void RunningJob::ask(std::string first, std::string second) {
    first_ = std::move(first);
    second_ = std::move(second);
}

RunningJob::News RunningJob::take(std::string_view parent, std::string_view state) {
    const bool isEnd = state == "idle" || state == "dead";
    const bool isAsking = !second_.empty();
    if (isAsking && parent == second_) {
        if (!isEnd) return News::None;
        second_.clear();
        return News::Known;
    }
    if (!isEnd) {
        id_ = parent;
    } else if (isAsking && parent == first_) {
        id_.reset();
    } else if (id_ == parent) {
        id_.reset();
        return isAsking ? News::None : News::Over;
    }
    return News::None;
}

}  // namespace jupyter
