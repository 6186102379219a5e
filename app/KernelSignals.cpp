#include "KernelSignals.h"

#include <atomic>
#include <cerrno>
#include <csignal>

#include <unistd.h>

#include "jupyter/zmq/SocketThread.h"
#include "standalone/process.h"

namespace app {

namespace {

// For the handlers.
std::atomic<jupyter::SocketThread*> sockets{nullptr};
std::atomic<pid_t> process{0};

bool pass(int signal) {
    auto* const target = sockets.load();
    if (target == nullptr || ::getpid() != process) return false;
    const int savedErrno = errno;
    target->raise(signal);
    errno = savedErrno;
    return true;
}

// A child ends of it, once the handler has returned.
void onTermination(int signal) {
    if (pass(signal)) return;
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

}  // namespace

KernelSignals::KernelSignals(jupyter::SocketThread& target) {
    process = ::getpid();
    sockets = &target;
    struct sigaction action {};
    action.sa_handler = onTermination;
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, nullptr);
}

KernelSignals::~KernelSignals() {
    standalone::setOutsideInterruptHandler(nullptr);
    std::signal(SIGTERM, SIG_DFL);
    sockets = nullptr;
}

void KernelSignals::passInterrupts() {
    standalone::setOutsideInterruptHandler([] { return pass(SIGINT); });
}

}  // namespace app
