#include "ServeSignals.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <system_error>

#include <sys/eventfd.h>
#include <unistd.h>

#include "standalone/StandaloneHost.h"

namespace app {

namespace {

// For the handlers.
std::atomic<int> event{-1};  // readable once a signal has come
std::atomic<int> stopSignal{0};
std::atomic<bool> isReloadWanted{false};

void notify() {
    const std::uint64_t one = 1;
    if (::write(event.load(), &one, sizeof one) < 0) return;  // it is notified already
}

void stopOn(int number) {
    const int savedErrno = errno;
    stopSignal = number;
    notify();
    errno = savedErrno;
}

void reloadOn(int) {
    const int savedErrno = errno;
    isReloadWanted = true;
    notify();
    errno = savedErrno;
}

}  // namespace

ServeSignals::ServeSignals(bool hasInterpreter) {
    event = ::eventfd(0, EFD_CLOEXEC);
    if (event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    stopSignal = 0;
    isReloadWanted = false;
    const bool isOfTerminal = ::isatty(STDIN_FILENO) != 0;
    for (std::size_t i = 0; i < signals.size(); ++i) {
        struct sigaction action {};
        action.sa_handler = signals[i] == SIGHUP && !isOfTerminal ? reloadOn : stopOn;
        action.sa_flags = SA_RESTART;
        auto& [isChanged, previous] = dispositions_[i];
        ::sigaction(signals[i], nullptr, &previous);
        if (signals[i] == SIGHUP && isOfTerminal && previous.sa_handler == SIG_IGN) continue;
        if (signals[i] == SIGINT && hasInterpreter) continue;
        isChanged = ::sigaction(signals[i], &action, nullptr) == 0;
    }
    standalone::setOutsideInterruptHandler([] {
        stopOn(SIGINT);
        return true;
    });
}

ServeSignals::~ServeSignals() {
    standalone::setOutsideInterruptHandler(nullptr);
    for (std::size_t i = 0; i < signals.size(); ++i) {
        if (dispositions_[i].isChanged) ::sigaction(signals[i], &dispositions_[i].previous, nullptr);
    }
    ::close(event.exchange(-1));
}

bool ServeSignals::isStopWanted() const { return stopSignal != 0; }

std::optional<std::string> ServeSignals::wait() const {
    for (;;) {
        if (const int number = stopSignal) return "SIG" + std::string(::sigabbrev_np(number));
        if (isReloadWanted.exchange(false)) return std::nullopt;
        std::uint64_t count = 0;
        if (::read(event.load(), &count, sizeof count) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }
}

}  // namespace app
