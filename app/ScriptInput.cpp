#include "ScriptInput.h"

#include <poll.h>

#include "terminal.h"
#include "text.h"

namespace app {

bool ScriptInput::wait(std::chrono::milliseconds limit) const {
    if (pending_.find('\n') != std::string::npos) return true;
    pollfd ready{.fd = descriptor_, .events = POLLIN, .revents = 0};
    return ::poll(&ready, 1, static_cast<int>(limit.count())) > 0;
}

std::string ScriptInput::readLine() {
    constexpr const char* endOfTransmission = "\x04";
    std::size_t end = 0;
    while ((end = pending_.find('\n')) == std::string::npos) {
        char buffer[4096];
        const std::size_t count = readSome(descriptor_, buffer, sizeof buffer);
        if (count == 0) break;
        pending_.append(buffer, count);
    }
    if (pending_.empty()) return endOfTransmission;
    const std::size_t length = end == std::string::npos ? pending_.size() : end + 1;
    std::string line = pending_.substr(0, length);
    pending_.erase(0, length);
    return withFinalNewline(std::move(line));
}

}  // namespace app
