#include "terminal.h"

#include <cerrno>
#include <system_error>

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace app {

namespace {

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

}  // namespace

void writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EPIPE) {
            throw ClosedPipe();
        } else if (errno == EAGAIN) {  // the descriptor's other owner made it non-blocking
            pollfd ready{.fd = descriptor, .events = POLLOUT, .revents = 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            fail("cannot write output");
        }
    }
}

void printError(int descriptor, const std::string& message) noexcept {
    try {
        writeAll(descriptor, "numora: " + message + "\n");
    } catch (...) {
        return;
    }
}

std::size_t readSome(int descriptor, char* buffer, std::size_t size) {
    while (true) {
        const ssize_t count = ::read(descriptor, buffer, size);
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno != EINTR) fail("cannot read standard input");
    }
}

std::string readAll(int descriptor) {
    std::string text;
    char buffer[65536];
    while (const std::size_t count = readSome(descriptor, buffer, sizeof buffer)) text.append(buffer, count);
    return text;
}

void Echo::set(bool isOn) {
    termios settings{};
    if (isOn == isOn_ || ::tcgetattr(descriptor_, &settings) != 0) return;
    isOn_ = isOn;
    constexpr tcflag_t shown = ECHO;
    constexpr tcflag_t newlineAlone = ECHONL;
    settings.c_lflag =
        isOn ? (settings.c_lflag | shown) & ~newlineAlone : (settings.c_lflag & ~shown) | newlineAlone;
    ::tcsetattr(descriptor_, TCSANOW, &settings);
}

WindowSize windowSize(int descriptor) {
    winsize size{};
    if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) return {};
    return {.columns = size.ws_col, .rows = size.ws_row};
}

}  // namespace app
