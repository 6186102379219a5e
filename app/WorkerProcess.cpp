#include "WorkerProcess.h"

#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sysexits.h>
#include <unistd.h>

#include "text.h"

namespace app {

namespace {

constexpr int firstGiven = 3;
// Beyond what user code is likely to open, or to close one by one; less where the system allows no such
// numbers.
constexpr int firstOwn[] = {501, 101, 11};

// For what runs in signal handlers and after a fork.
pid_t process = 0;
int sockets[2] = {-1, -1};

void closeSockets() {
    for (const int socket : sockets) ::close(socket);
}

// Out of the way, before anything else gets a number.
int moved(int descriptor) {
    int own = -1;
    for (const int first : firstOwn) {
        if (own < 0) own = ::fcntl(descriptor, F_DUPFD_CLOEXEC, first);
    }
    if (own < 0) throw InputError("worker must be started by serve");
    ::close(descriptor);
    return own;
}

void endWithParent(int control) {
    const int signal = SIGRTMIN + 2;
    struct sigaction action {};
    action.sa_handler = [](int) { WorkerProcess::endGroup(); };
    ::sigaction(signal, &action, nullptr);
    ::prctl(PR_SET_PDEATHSIG, signal);
    // It may have ended before.
    pollfd ended{control, POLLIN, 0};
    if (::poll(&ended, 1, 0) > 0 && (ended.revents & (POLLHUP | POLLERR)) != 0) WorkerProcess::endGroup();
}

}  // namespace

WorkerProcess::WorkerProcess() {
    process = ::getpid();
    if (::getsid(0) != process) ::setsid();
    for (std::size_t i = 0; i < descriptors_.size(); ++i) {
        descriptors_.at(i) = moved(firstGiven + static_cast<int>(i));
    }
    sockets[0] = main();
    sockets[1] = control();
    ::pthread_atfork(nullptr, nullptr, closeSockets);
    endWithParent(control());
}

void WorkerProcess::endGroup() {
    if (::getpid() == process) ::kill(0, SIGKILL);
}

void WorkerProcess::endForLink() {
    if (::getpid() == process) ::_exit(EX_PROTOCOL);
}

}  // namespace app
