#include "SendingThread.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace worker {

namespace {

int makeEvent() {
    const int event = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    return event;
}

}  // namespace

SendingThread::SendingThread() : event_(makeEvent()) {}

SendingThread::~SendingThread() {
    stop();
    ::close(event_);
}

void SendingThread::start(std::array<Way, count> ways) {
    ways_ = std::move(ways);
    thread_ = std::thread([this] { run(); });
}

void SendingThread::wake(std::size_t way) {
    isWanted_.at(way) = true;
    ::eventfd_write(event_, 1);
}

void SendingThread::stop() {
    isStopped_ = true;
    ::eventfd_write(event_, 1);
    if (thread_.joinable()) thread_.join();
}

// A socket that is closed or broken is ready, too: its writer finds out.
void SendingThread::run() {
    while (!isStopped_) {
        std::array<pollfd, count + 1> ready{};
        ready[count] = {event_, POLLIN, 0};
        for (std::size_t i = 0; i < count; ++i) {
            ready.at(i) = {isWanted_.at(i) ? ways_.at(i).socket : -1, POLLOUT, 0};
        }
        if (::poll(ready.data(), ready.size(), -1) < 0 && errno != EINTR) return;
        eventfd_t wakes = 0;
        if (ready[count].revents != 0 && ::eventfd_read(event_, &wakes) != 0 && errno == EBADF) return;
        for (std::size_t i = 0; i < count; ++i) {
            if (ready.at(i).revents == 0 || !isWanted_.at(i).exchange(false)) continue;
            ways_.at(i).writer->sendMore();
        }
    }
}

}  // namespace worker
