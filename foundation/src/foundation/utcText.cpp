#include "foundation/core/utcText.h"

#include <array>
#include <ctime>

namespace foundation::core {

std::string utcText(std::chrono::system_clock::time_point time) {
    const auto sinceEpoch = time.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch - seconds).count();
    const std::time_t whole = seconds.count();
    std::tm parts{};
    ::gmtime_r(&whole, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    return text.data() + ("." + std::to_string(1000 + milliseconds).substr(1)) + "Z";
}

}  // namespace foundation::core
