#include "ScriptInput.h"

#include <utility>

#include <Poco/JSON/Array.h>
#include <poll.h>

#include "connector/json/write.h"
#include "terminal.h"
#include "text.h"

namespace app {

namespace {

constexpr const char* endOfTransmission = "\x04";
constexpr const char* blockMark = "\x1e";  // of numora._script

}  // namespace

bool ScriptInput::wait(bool isEchoed, std::chrono::milliseconds limit) {
    echo_.set(isEchoed);
    if (isComplete()) return true;
    pollfd ready{.fd = descriptor_, .events = POLLIN, .revents = 0};
    if (::poll(&ready, 1, static_cast<int>(limit.count())) > 0) fill();
    return isComplete();
}

void ScriptInput::fill() {
    char buffer[65536];
    const std::size_t count = readSome(descriptor_, buffer, sizeof buffer);
    pending_.append(buffer, count);
    isAtEnd_ = count == 0;
}

std::string ScriptInput::read(bool mayBeBlock) {
    while (!isComplete()) fill();
    isAtEnd_ = false;  // of a terminal there may be more
    echo_.set(true);
    const std::size_t end = pending_.find('\n');
    if (pending_.empty()) return endOfTransmission;
    if (end == std::string::npos) return withFinalNewline(std::exchange(pending_, {}));
    const std::size_t last = pending_.rfind('\n');
    if (mayBeBlock && last != end) return takeLines(last + 1);
    std::string line = pending_.substr(0, end + 1);
    pending_.erase(0, end + 1);
    return line;
}

std::string ScriptInput::takeLines(std::size_t end) {
    Poco::JSON::Array::Ptr lines = new Poco::JSON::Array;
    std::size_t at = 0;
    while (at < end) {
        const std::size_t next = pending_.find('\n', at) + 1;
        lines->add(pending_.substr(at, next - at));
        at = next;
    }
    pending_.erase(0, end);
    return blockMark + connector::json::written(lines) + "\n";
}

}  // namespace app
