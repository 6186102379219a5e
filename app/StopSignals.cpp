#include "StopSignals.h"

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

std::atomic<int> event{-1};  // for the handlers; readable once a signal has come

std::atomic<int> last{SIGINT};  // that has come; an interpreter tells of its own without a number

void notify() {
    const std::uint64_t one = 1;
    if (::write(event.load(), &one, sizeof one) < 0) return;  // it is notified already
}

void onSignal(int number) {
    const int savedErrno = errno;
    last = number;
    notify();
    errno = savedErrno;
}

}  // namespace

StopSignals::StopSignals(bool hasInterpreter) {
    event = ::eventfd(0, EFD_CLOEXEC);
    if (event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    for (std::size_t i = 0; i < signals.size(); ++i) {
        struct sigaction action {};
        action.sa_handler = onSignal;
        action.sa_flags = SA_RESTART;
        auto& [isChanged, previous] = dispositions_[i];
        ::sigaction(signals[i], nullptr, &previous);
        if (signals[i] == SIGHUP && previous.sa_handler == SIG_IGN) continue;
        if (signals[i] == SIGINT && hasInterpreter) continue;
        isChanged = ::sigaction(signals[i], &action, nullptr) == 0;
    }
    standalone::setOutsideInterruptHandler([] {
        notify();
        return true;
    });
}

StopSignals::~StopSignals() {
    standalone::setOutsideInterruptHandler(nullptr);
    for (std::size_t i = 0; i < signals.size(); ++i) {
        if (dispositions_[i].isChanged) ::sigaction(signals[i], &dispositions_[i].previous, nullptr);
    }
    ::close(event.exchange(-1));
}

std::string StopSignals::wait() const {
    std::uint64_t count = 0;
    while (::read(event.load(), &count, sizeof count) < 0) {
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return "SIG" + std::string(::sigabbrev_np(last));
}

}  // namespace app
