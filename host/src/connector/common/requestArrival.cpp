#include <chrono>

#include "connector/common/requests.h"

namespace connector::common {

std::uint64_t arrivalNow() {
    using namespace std::chrono;
    const auto now = duration_cast<nanoseconds>(steady_clock::now().time_since_epoch());
    return static_cast<std::uint64_t>(now.count());
}

void stampArrival(ContextState& context) {
    using namespace std::chrono;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch());
    context.set("requestStartTime", static_cast<std::uint64_t>(now.count()));
    context.set(requestArrival, arrivalNow());
}

}  // namespace connector::common
