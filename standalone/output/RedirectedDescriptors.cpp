#include "output/RedirectedDescriptors.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "foundation/log/diagnostic_logger.h"
#include "standalone/process.h"

namespace standalone {

namespace {

int check(int result, const char* what) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
    return result;
}

void closeIfOpen(int descriptor) {
    if (descriptor >= 0) close(descriptor);
}

}  // namespace

RedirectedDescriptors::RedirectedDescriptors() {
    std::fflush(nullptr);
    openStandardStreams();
    for (int fd = 0; fd < 3; ++fd) {
        originals_.at(static_cast<std::size_t>(fd)) = check(fcntl(fd, F_DUPFD_CLOEXEC, 3), "dup");
    }
    for (int fd = 1; fd <= 2; ++fd) {
        std::array<int, 2> ends{};
        check(pipe2(ends.data(), O_CLOEXEC), "pipe");
        // Only our end does not block: writers expect an ordinary descriptor.
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        readEnds_.at(static_cast<std::size_t>(fd - 1)) = ends[0];
        check(dup2(ends[1], fd), "dup2");
        // Kept open, so that code that closes the descriptor does not make the pipe look ended, which poll
        // would report again and again.
        writeEnds_.at(static_cast<std::size_t>(fd - 1)) = ends[1];
    }
    foundation::log::setDescriptor(originals_[2]);
    const int nothing = check(open("/dev/null", O_RDONLY | O_CLOEXEC), "open /dev/null");
    check(dup2(nothing, 0), "dup2");
    close(nothing);
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

RedirectedDescriptors::~RedirectedDescriptors() {
    for (const auto* descriptors : {&readEnds_, &writeEnds_}) {
        for (const int end : *descriptors) closeIfOpen(end);
    }
    for (const int original : originals_) closeIfOpen(original);
}

void RedirectedDescriptors::putBack() {
    std::fflush(nullptr);
    for (int fd = 0; fd < 3; ++fd) dup2(originals_.at(static_cast<std::size_t>(fd)), fd);
}

}  // namespace standalone
