#include "PlainLines.h"

#include <unistd.h>

#include "terminal.h"
#include "text.h"

namespace app {

PlainLines::PlainLines(const StandardStreams& streams)
    : streams_(streams), isInteractive_(::isatty(streams.input) == 1 && ::isatty(streams.output) == 1) {}

std::optional<std::string> PlainLines::read(const std::string& prompt, bool isEchoed) {
    Echo echo(streams_.input);
    echo.set(isEchoed);
    if (isInteractive_) writeAll(streams_.output, prompt);
    std::size_t searched = 0;
    std::size_t end = 0;
    while ((end = pending_.find('\n', searched)) == std::string::npos) {
        searched = pending_.size();
        char buffer[4096];
        const std::size_t count = readSome(streams_.input, buffer, sizeof buffer);
        pending_.append(buffer, count);
        if (count == 0) break;
    }
    if (pending_.empty()) {
        if (isInteractive_) writeAll(streams_.output, "\n");
        return std::nullopt;
    }
    std::string line = pending_.substr(0, end);
    pending_.erase(0, end == std::string::npos ? end : end + 1);
    requireUtf8("line " + std::to_string(++count_) + " of standard input", line);
    return line;
}

}  // namespace app
