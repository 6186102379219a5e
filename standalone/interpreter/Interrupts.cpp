#define PY_SSIZE_T_CLEAN
#include "interpreter/Interrupts.h"

#include <cerrno>
#include <csignal>

#include <Python.h>
#include <pthread.h>

#include "standalone/StandaloneHost.h"

namespace standalone {

namespace {

// The handler's view; one interpreter thread in the process. 0 stands for no code running, and for no thread.
std::atomic<std::uint32_t> currentCode{0};
std::atomic<pthread_t> interpreterThread{};

void onInterrupt(int, siginfo_t* info, void*) {
    const bool isAddressed = info->si_code == SI_QUEUE;
    if (isAddressed && static_cast<std::uint32_t>(info->si_value.sival_int) != currentCode.load()) return;
    const int savedErrno = errno;
    const pthread_t thread = interpreterThread.load();
    if (pthread_equal(thread, pthread_self()) != 0) {
        PyErr_SetInterruptEx(SIGINT);
    } else if (thread != pthread_t{}) {
        pthread_kill(thread,
                     SIGINT);  // a thread that Python code started took it; the sleep to break is elsewhere
    }
    errno = savedErrno;
}

void installHandler() {
    struct sigaction action {};
    action.sa_sigaction = onInterrupt;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
}

}  // namespace

void setInterpreterSignalsBlocked(bool blocked) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGRTMIN);
    pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
}

void blockInterpreterSignals() { setInterpreterSignalsBlocked(true); }

void Interrupts::attach() {
    interpreterThread.store(pthread_self());
    installHandler();
    setInterpreterSignalsBlocked(false);
}

void Interrupts::detach() {
    setInterpreterSignalsBlocked(true);
    currentCode.store(0);
    interpreterThread.store(pthread_t{});
}

std::uint32_t Interrupts::begin() {
    swallow();
    isHeldBack_.store(false);
    return currentCode.exchange(++last_);
}

void Interrupts::end(std::uint32_t outer) {
    currentCode.store(outer);
    swallow();
    // Code that sets SIGINT's handler, and sets it back, leaves CPython's own there, which knows no numbers.
    struct sigaction action {};
    sigaction(SIGINT, nullptr, &action);
    if ((action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler != SIG_IGN && action.sa_handler != SIG_DFL) {
        installHandler();
    }
}

bool Interrupts::request() {
    const std::uint32_t code = currentCode.load();
    const pthread_t thread = interpreterThread.load();
    if (code == 0 || thread == pthread_t{}) return false;
    if (!isEnabled_.load()) {
        isHeldBack_.store(true);
        return true;
    }
    sigval value{};
    value.sival_int = static_cast<int>(code);
    pthread_sigqueue(thread, SIGINT, value);
    wake_();
    return true;
}

bool Interrupts::setEnabled(bool enabled) {
    const bool earlier = isEnabled_.exchange(enabled);
    if (enabled && isHeldBack_.exchange(false)) request();
    return earlier;
}

bool Interrupts::setPending(bool pending) {
    if (!pending) return isHeldBack_.exchange(false);
    const bool earlier = isHeldBack_.load();
    request();
    return earlier;
}

bool Interrupts::isSignalThread() const {
    return pthread_equal(interpreterThread.load(), pthread_self()) != 0;
}

void Interrupts::swallow() {
    while (PyErr_CheckSignals() != 0) PyErr_Clear();
}

}  // namespace standalone
