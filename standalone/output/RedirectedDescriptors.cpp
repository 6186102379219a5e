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

// The write ends are kept open, so that code that closes a descriptor does not make its pipe look ended,
// which poll would report again and again. Only our ends do not block: writers expect an ordinary descriptor.
void RedirectedDescriptors::makePipe(int fd) {
    originals_.at(static_cast<std::size_t>(fd)) = check(fcntl(fd, F_DUPFD_CLOEXEC, 3), "dup");
    std::array<int, 2> ends{};
    check(pipe2(ends.data(), O_CLOEXEC), "pipe");
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    readEnds_.at(static_cast<std::size_t>(fd - 1)) = ends[0];
    writeEnds_.at(static_cast<std::size_t>(fd - 1)) = ends[1];
    check(dup2(ends[1], fd), "dup2");
}

void RedirectedDescriptors::usePipe(int fd, int readEnd) {
    originals_.at(static_cast<std::size_t>(fd)) =
        check(open("/dev/null", O_WRONLY | O_CLOEXEC), "open /dev/null");
    fcntl(readEnd, F_SETFL, O_NONBLOCK);
    readEnds_.at(static_cast<std::size_t>(fd - 1)) = readEnd;
    writeEnds_.at(static_cast<std::size_t>(fd - 1)) = check(fcntl(fd, F_DUPFD_CLOEXEC, 3), "dup");
}

RedirectedDescriptors::RedirectedDescriptors(const std::array<int, 2>& pipes) : areOfParent_(pipes[0] >= 0) {
    std::fflush(nullptr);
    openStandardStreams();
    originals_[0] = check(fcntl(0, F_DUPFD_CLOEXEC, 3), "dup");
    for (int fd = 1; fd <= 2; ++fd) {
        if (areOfParent_) {
            usePipe(fd, pipes.at(static_cast<std::size_t>(fd - 1)));
        } else {
            makePipe(fd);
        }
    }
    if (!areOfParent_) foundation::log::setDescriptor(originals_[2]);
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
    if (areOfParent_) return;
    for (int fd = 0; fd < 3; ++fd) dup2(originals_.at(static_cast<std::size_t>(fd)), fd);
}

}  // namespace standalone
