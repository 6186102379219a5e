#define PY_SSIZE_T_CLEAN
#include "thread/Interrupts.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <system_error>

#include <Python.h>
#include <pthread.h>
#include <unistd.h>

#include "standalone/process.h"

namespace standalone {

namespace {

// The handler's view; one interpreter thread in the process, or none.
std::atomic<pthread_t> interpreterThread{};
std::atomic<bool> hasOutsideInterrupt{false};

bool isFromOutside(const siginfo_t& info) {
    return info.si_code == SI_KERNEL || (info.si_code == SI_USER && info.si_pid != getpid());
}

// On whichever thread lets the signal in: one that Python code started does, too.
void onInterrupt(int, siginfo_t* info, void*) {
    const int savedErrno = errno;
    const pthread_t thread = interpreterThread.load();
    if (!isFromOutside(*info)) {
        PyErr_SetInterruptEx(SIGINT);
        // The sleep that it is to break into may be elsewhere.
        if (pthread_equal(thread, pthread_self()) == 0 && thread != pthread_t{})
            pthread_kill(thread, SIGRTMIN);
    } else if (!callOutsideInterruptHandler() && thread != pthread_t{}) {
        hasOutsideInterrupt.store(true);
        pthread_kill(thread, SIGRTMIN);
    }
    errno = savedErrno;
}

timer_t repetition{};

void setRepetition(long firstMs, long intervalMs) {
    itimerspec times{};
    times.it_value.tv_nsec = firstMs * 1'000'000;
    times.it_interval.tv_nsec = intervalMs * 1'000'000;
    timer_settime(repetition, 0, &times, nullptr);
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
bool dropSignals() {
    bool hasRaised = false;
    while (PyErr_CheckSignals() != 0) {
        PyErr_Clear();
        hasRaised = true;
    }
    return hasRaised;
}

}  // namespace

void Interrupts::attach() {
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = SIGRTMIN;
    event._sigev_un._tid = gettid();
    if (timer_create(CLOCK_MONOTONIC, &event, &repetition) != 0) {
        throw std::system_error(errno, std::generic_category(), "timer_create");
    }
    interpreterThread.store(pthread_self());
    installHandler();
    unblockInterpreterSignals();
}

void Interrupts::detach() {
    blockInterpreterSignals();
    if (pthread_equal(interpreterThread.exchange(pthread_t{}), pthread_self()) != 0) timer_delete(repetition);
}

bool Interrupts::begin(bool isInside) {
    // What came while nothing ran is meant for nobody.
    if (!isInside) takeOutside();
    return dropSignals() && isInside;
}

void Interrupts::end() { dropSignals(); }

bool Interrupts::areReplaced() {
    struct sigaction interrupt {};
    struct sigaction look {};
    sigset_t blocked;
    sigaction(SIGINT, nullptr, &interrupt);
    sigaction(SIGRTMIN, nullptr, &look);
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return interrupt.sa_sigaction != onInterrupt || look.sa_handler == SIG_DFL ||
           look.sa_handler == SIG_IGN || sigismember(&blocked, SIGINT) != 0 ||
           sigismember(&blocked, SIGRTMIN) != 0;
}

void Interrupts::install() {
    installHandler();
    unblockInterpreterSignals();
}

void Interrupts::startSignals() {
    const pthread_t thread = interpreterThread.load();
    if (thread == pthread_t{}) return;
    struct sigaction action {};
    sigaction(SIGRTMIN, nullptr, &action);
    if (action.sa_handler == SIG_DFL) return;  // code has taken the handler away: the process would end
    pthread_kill(thread, SIGRTMIN);
    setRepetition(2, 20);
}

void Interrupts::stopSignals() {
    if (interpreterThread.load() != pthread_t{}) setRepetition(0, 0);
}

bool Interrupts::takeOutside() { return hasOutsideInterrupt.exchange(false); }

bool Interrupts::deliver() {
    PyErr_SetInterruptEx(SIGINT);
    return check();
}

bool Interrupts::check() { return PyErr_CheckSignals() == 0; }

bool Interrupts::isSignalThread() { return pthread_equal(interpreterThread.load(), pthread_self()) != 0; }

}  // namespace standalone
