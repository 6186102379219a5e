#include "PlainLines.h"

#include "terminal.h"
#include "text.h"

namespace app {

Line PlainLines::read(const std::string&) {
    std::size_t searched = 0;
    std::size_t end = 0;
    while ((end = pending_.find('\n', searched)) == std::string::npos) {
        searched = pending_.size();
        char buffer[4096];
        const std::size_t count = readSome(descriptor_, buffer, sizeof buffer);
        pending_.append(buffer, count);
        if (count == 0) break;
    }
    if (pending_.empty()) return {};
    Line line{.kind = Line::Kind::Text, .text = pending_.substr(0, end)};
    pending_.erase(0, end == std::string::npos ? end : end + 1);
    requireUtf8("line " + std::to_string(++count_) + " of standard input", line.text);
    return line;
}

}  // namespace app
