#include "http/BodyLimits.h"

#include <algorithm>

namespace gateway::http {

namespace {

constexpr std::size_t leastRate = std::size_t{64} << 10;  // bytes in a second

}  // namespace

void BodyLimits::begin(const HttpRequest& head) {
    isAuthenticated_ = head.grant != nullptr;
    desk_ = head.desk;
}

bool BodyLimits::allowMore(const RequestReader& request) {
    if (!isAuthenticated_ && request.body().size() > limits_.unauthenticatedBytes) {
        if (!desk_ || !desk_->bayeux().showsSession(request.body())) {
            permit_ = endpoints_.permitLargeBody();
            if (!permit_) return false;
        }
        isAuthenticated_ = true;
    }
    const std::size_t most = isAuthenticated_ ? limits_.bodyBytes : limits_.unauthenticatedBytes;
    return !request.isBodyBeyond(std::min(most, limits_.bodyBytes));
}

std::chrono::milliseconds BodyLimits::timeLeft(const RequestReader& request) const {
    const auto end =
        start_ + limits_.bodyTime + std::chrono::milliseconds(1000 * request.bodyBytes() / leastRate);
    return std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
}

}  // namespace gateway::http
