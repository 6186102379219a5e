#include "zmq/Tasks.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace jupyter {

namespace {

int makeEvent() {
    const int event = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    return event;
}

}  // namespace

Tasks::Tasks() : event_(makeEvent()) {}

Tasks::~Tasks() { ::close(event_); }

void Tasks::wait(std::chrono::milliseconds limit) const {
    pollfd event{.fd = event_, .events = POLLIN, .revents = 0};
    ::poll(&event, 1, static_cast<int>(limit.count()));
}

void Tasks::notify() {
    if (isNotified_.exchange(true)) return;
    const std::uint64_t one = 1;
    const int savedErrno = errno;
    if (::write(event_, &one, sizeof one) < 0) errno = savedErrno;  // it is readable already
}

void Tasks::add(Task task) {
    {
        const connector::MutexLock lock(mutex_);
        if (isClosed_) return;
        tasks_.push_back(std::move(task));
    }
    notify();
}

void Tasks::addAt(Time time, Task task) {
    {
        const connector::MutexLock lock(mutex_);
        if (isClosed_) return;
        later_.emplace(time, std::move(task));
    }
    notify();
}

void Tasks::raise(int signal) {
    signals_ |= std::uint64_t{1} << signal;
    notify();
}

void Tasks::close() {
    std::vector<Task> tasks;
    std::multimap<Time, Task> later;
    {
        const connector::MutexLock lock(mutex_);
        isClosed_ = true;
        tasks.swap(tasks_);
        later.swap(later_);
    }
    notify();
}

// The flag goes down after the event was read: whoever finds it up has added something that is taken now, and
// whoever does not writes the event anew.
Tasks::Taken Tasks::take(Time now) {
    std::uint64_t count = 0;
    if (::read(event_, &count, sizeof count) < 0) count = 0;
    isNotified_ = false;
    Taken taken;
    taken.signals = signals_.exchange(0);
    const connector::MutexLock lock(mutex_);
    taken.isClosed = isClosed_;
    taken.tasks.swap(tasks_);
    const auto due = later_.upper_bound(now);
    for (auto it = later_.begin(); it != due; ++it) taken.tasks.push_back(std::move(it->second));
    later_.erase(later_.begin(), due);
    if (!later_.empty()) taken.next = later_.begin()->first;
    return taken;
}

}  // namespace jupyter
