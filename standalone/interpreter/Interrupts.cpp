#define PY_SSIZE_T_CLEAN
#include "interpreter/Interrupts.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <system_error>

#include <Python.h>
#include <pthread.h>
#include <unistd.h>

#include "standalone/StandaloneHost.h"

namespace standalone {

namespace {

// The handler's view; one interpreter thread in the process. 0 stands for no code running, and for no thread.
std::atomic<std::uint32_t> currentCode{0};
std::atomic<pthread_t> interpreterThread{};

constexpr std::uint32_t betweenCodes = ~0U;  // no code has this number

std::atomic<void (*)()> outsideHandler{nullptr};

bool isFromOutside(const siginfo_t& info) {
    return info.si_code == SI_KERNEL || (info.si_code == SI_USER && info.si_pid != getpid());
}

void onInterrupt(int, siginfo_t* info, void*) {
    const bool isAddressed = info->si_code == SI_QUEUE;
    if (isAddressed && static_cast<std::uint32_t>(info->si_value.sival_int) != currentCode.load()) return;
    const int savedErrno = errno;
    void (*const outside)() = outsideHandler.load();
    if (outside != nullptr && isFromOutside(*info)) {
        outside();
        errno = savedErrno;
        return;
    }
    const pthread_t thread = interpreterThread.load();
    if (pthread_equal(thread, pthread_self()) != 0) {
        PyErr_SetInterruptEx(SIGINT);
    } else if (thread != pthread_t{}) {
        pthread_kill(thread,
                     SIGINT);  // a thread that Python code started took it; the sleep to break is elsewhere
    }
    errno = savedErrno;
}

timer_t followUp{};
std::atomic<bool> isFollowUpSet{false};

void setFollowUp(long firstMs, long intervalMs) {
    itimerspec times{};
    times.it_value.tv_nsec = firstMs * 1'000'000;
    times.it_interval.tv_nsec = intervalMs * 1'000'000;
    timer_settime(followUp, 0, &times, nullptr);
}

void followUpSignals() {
    setFollowUp(2, 20);
    isFollowUpSet.store(true);
}

void installHandler() {
    struct sigaction action {};
    action.sa_sigaction = onInterrupt;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
}

// Runs the handlers of the signals that have come, and drops what they raise. True when they raised
// something.
bool swallow() {
    bool hasRaised = false;
    while (PyErr_CheckSignals() != 0) {
        PyErr_Clear();
        hasRaised = true;
    }
    return hasRaised;
}

}  // namespace

void setInterpreterSignalsBlocked(bool blocked) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGRTMIN);
    pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
}

void setOutsideInterruptHandler(void (*handler)()) { outsideHandler.store(handler); }

void blockInterpreterSignals() { setInterpreterSignalsBlocked(true); }

void Interrupts::attach() {
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = SIGRTMIN;
    event._sigev_un._tid = gettid();
    if (timer_create(CLOCK_MONOTONIC, &event, &followUp) != 0) {
        throw std::system_error(errno, std::generic_category(), "timer_create");
    }
    interpreterThread.store(pthread_self());
    installHandler();
    setInterpreterSignalsBlocked(false);
}

void Interrupts::detach() {
    setInterpreterSignalsBlocked(true);
    currentCode.store(0);
    if (pthread_equal(interpreterThread.exchange(pthread_t{}), pthread_self()) != 0) timer_delete(followUp);
}

bool Interrupts::begin(std::uint32_t code, std::uint32_t outer) {
    currentCode.store(betweenCodes);
    // What came while nothing ran is meant for nobody.
    const bool hadSignals = swallow();
    currentCode.store(code);
    return hadSignals && outer != 0;
}

void Interrupts::end(std::uint32_t outer) {
    calm();
    currentCode.store(betweenCodes);
    swallow();
    currentCode.store(outer);
}

bool Interrupts::isDisturbed() {
    struct sigaction action {};
    sigaction(SIGINT, nullptr, &action);
    return action.sa_sigaction != onInterrupt;
}

void Interrupts::install() { installHandler(); }

void Interrupts::send(std::uint32_t code) {
    const pthread_t thread = interpreterThread.load();
    if (thread == pthread_t{}) return;
    struct sigaction action {};
    sigaction(SIGINT, nullptr, &action);
    if (action.sa_handler == SIG_DFL) return;
    sigval value{};
    value.sival_int = static_cast<int>(code);
    pthread_sigqueue(thread, SIGINT, value);
    followUpSignals();
}

void Interrupts::sendRequests() {
    const pthread_t thread = interpreterThread.load();
    if (thread == pthread_t{}) return;
    pthread_kill(thread, SIGRTMIN);
    followUpSignals();
}

void Interrupts::calm() {
    if (isFollowUpSet.exchange(false)) setFollowUp(0, 0);
}

void Interrupts::trip() { PyErr_SetInterruptEx(SIGINT); }

bool Interrupts::isSignalThread() { return pthread_equal(interpreterThread.load(), pthread_self()) != 0; }

}  // namespace standalone
