#include "supervisor/Culler.h"

#include <algorithm>

namespace supervisor {

Culler::Culler(CullerOptions options, Clock now)
    : options_(options), now_(std::move(now)), idleSince_(now_()) {}

void Culler::noteBegin() {
    ++running_;
    announced_.reset();
}

void Culler::noteEnd() {
    if (running_ > 0) --running_;
    idleSince_ = now_();
}

Culler::Step Culler::look() {
    if (isHeld()) announced_.reset();
    const auto next = nextLook();
    if (!next || now_() < *next) return Step::Nothing;
    if (announced_) return Step::End;
    announced_ = now_();
    return Step::Announce;
}

std::optional<Culler::Time> Culler::nextLook() const {
    if (isHeld() || options_.idle.count() == 0) return std::nullopt;
    // Whoever stopped watching late, or a clock that was looked at late, does not shorten the notice.
    if (announced_) return std::max(idleSince_ + options_.idle, *announced_ + notice);
    return idleSince_ + std::max(options_.idle - notice, std::chrono::minutes(0));
}

}  // namespace supervisor
