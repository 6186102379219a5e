#include "remains.h"

#include <algorithm>
#include <array>

#include <fcntl.h>
#include <sys/stat.h>

#include "link/BlackBox.h"

namespace supervisor {

namespace {

constexpr std::size_t textLimit = std::size_t{16} << 10;
constexpr std::size_t traceLimit = std::size_t{64} << 10;

/// The end of a text, from the beginning of a character.
std::string tail(const std::string& text, std::size_t limit) {
    if (text.size() <= limit) return text;
    std::size_t from = text.size() - limit;
    while (from < text.size() && (static_cast<unsigned char>(text[from]) & 0xC0) == 0x80) ++from;
    return text.substr(from);
}

/// At most what a pipe holds: a stranger who has the pipe may go on writing.
std::string leftIn(const Descriptor& pipe) {
    std::size_t left = static_cast<std::size_t>(std::max(::fcntl(pipe.get(), F_GETPIPE_SZ), 0));
    std::string text;
    std::array<char, 16384> piece;
    while (left > 0) {
        const ssize_t length = ::read(pipe.get(), piece.data(), std::min(left, piece.size()));
        if (length <= 0) break;
        text.append(piece.data(), static_cast<std::size_t>(length));
        left -= static_cast<std::size_t>(length);
    }
    return text;
}

std::string endOf(const Descriptor& file, std::size_t limit) {
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) return {};
    const off_t from = std::max<off_t>(0, status.st_size - static_cast<off_t>(limit));
    std::string text(limit, '\0');
    const ssize_t length = ::pread(file.get(), text.data(), text.size(), from);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(0, length)));
    return text;
}

/// The worker may have written anything into the box, and sentences stand in terminals.
std::string nameOnly(const std::string& type) {
    std::string name = type.substr(0, 256);
    std::erase_if(name, [](unsigned char c) { return c <= ' ' || c >= 0x7F; });
    return name;
}

}  // namespace

void readRemains(const Process& process, DeathRecord& record) {
    record.rest = tail(leftIn(process.output) + leftIn(process.errors), textLimit);
    record.trace = endOf(process.trace, traceLimit);
    const links::LastWords words = links::readBlackBox(process.blackBox.get());
    record.requestType = nameOnly(words.type);
    record.requestUuid = words.uuid;
    record.requestCode = words.code;
    record.output = tail(words.output, textLimit);
}

}  // namespace supervisor
