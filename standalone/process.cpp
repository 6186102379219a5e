#include "standalone/process.h"

#include <atomic>
#include <csignal>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace standalone {

namespace {

std::atomic<bool (*)()> outsideHandler{nullptr};

void maskInterpreterSignals(int how) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGRTMIN);
    pthread_sigmask(how, &set, nullptr);
}

}  // namespace

void blockInterpreterSignals() { maskInterpreterSignals(SIG_BLOCK); }
void unblockInterpreterSignals() { maskInterpreterSignals(SIG_UNBLOCK); }

void setOutsideInterruptHandler(bool (*handler)()) { outsideHandler.store(handler); }

bool callOutsideInterruptHandler() {
    bool (*const handler)() = outsideHandler.load();
    return handler != nullptr && handler();
}

void openStandardStreams() {
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor < 3);
    if (descriptor >= 0) close(descriptor);
}

}  // namespace standalone
