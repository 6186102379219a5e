#include "foundation/log/LineWriter.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include "foundation/escapeControls.h"

namespace foundation::log {

namespace {

constexpr std::size_t mostPending = std::size_t{1} << 20;
constexpr auto timeAtEnd = std::chrono::milliseconds(300);

std::string lossNotice(std::size_t lost) {
    return std::to_string(lost) + (lost == 1 ? " log line was lost." : " log lines were lost.");
}

struct Written {
    std::size_t lost = 0;  ///< lines that were not taken, as when the disk is full
    bool endsInsideLine = false;
};

// Each line whole, so that lines of several processes on one terminal do not mix. Blocks as long as it takes,
// or until `isCurrent` says no more.
template <class IsCurrent>
Written writeLines(int descriptor, std::string_view lines, const IsCurrent& isCurrent) {
    constexpr int betweenLooks = 1000;  // ms
    bool isInsideLine = false;
    while (!lines.empty()) {
        const ssize_t count = ::write(descriptor, lines.data(), lines.find('\n') + 1);
        if (count > 0) {
            isInsideLine = lines[static_cast<std::size_t>(count) - 1] != '\n';
            lines.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {  // the reader of a pipe hangs, or is slow
            pollfd ready{.fd = descriptor, .events = POLLOUT, .revents = 0};
            if (::poll(&ready, 1, betweenLooks) == 0 && !isCurrent()) break;
        } else if (errno != EINTR) {
            break;
        }
    }
    return {static_cast<std::size_t>(std::ranges::count(lines, '\n')), isInsideLine && !lines.empty()};
}

}  // namespace

/// A duplicate, so that what is done to the original does not matter.
class LineWriter::Descriptor {
public:
    explicit Descriptor(int original) : value_(::fcntl(original, F_DUPFD_CLOEXEC, 3)) {}
    ~Descriptor() {
        if (value_ >= 0) ::close(value_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int value() const { return value_; }

private:
    const int value_;
};

LineWriter& LineWriter::ofProcess() { return *instance(); }

const std::shared_ptr<const LineWriter::Descriptor>& LineWriter::standardError() {
    static const auto& descriptor =
        *new std::shared_ptr<const Descriptor>(std::make_shared<const Descriptor>(STDERR_FILENO));
    return descriptor;
}

LineWriter*& LineWriter::instance() {
    static auto* writer = [] {
        ::pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
        std::atexit([] { ofProcess().flush(timeAtEnd); });
        return new LineWriter(standardError());
    }();
    return writer;
}

namespace {
// Before there are threads, so that no fork comes while it is being made.
[[maybe_unused]] const auto& writerOfProcess = LineWriter::ofProcess();
}  // namespace

void LineWriter::beforeFork() CONNECTOR_TSA(no_thread_safety_analysis) { instance()->mutex_.lock(); }
void LineWriter::afterForkInParent() CONNECTOR_TSA(no_thread_safety_analysis) { instance()->mutex_.unlock(); }
void LineWriter::afterForkInChild() CONNECTOR_TSA(no_thread_safety_analysis) {
    auto* own = new LineWriter(instance()->descriptor_);
    own->notice_ = instance()->notice_;
    instance() = own;
}

void LineWriter::write(std::string_view text, std::size_t longest) {
    const std::string line = escapeControls(text, longest) + '\n';
    const connector::MutexLock lock(mutex_);
    if (!descriptor_) return;
    if (pending_.size() + line.size() > mostPending) {
        ++lost_;
    } else {
        pending_ += line;
    }
    if (!thread_.joinable()) startLocked();
    added_.notify_one();
}

bool LineWriter::flush(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    connector::MutexLock lock(mutex_);
    while (isWriting_ || !pending_.empty()) {
        if (written_.wait_until(lock.native(), deadline) == std::cv_status::timeout) break;
    }
    return !isWriting_ && pending_.empty();
}

void LineWriter::setDescriptor(int descriptor) {
    auto next = std::make_shared<const Descriptor>(descriptor);
    const connector::MutexLock lock(mutex_);
    descriptor_.swap(next);
}

void LineWriter::setLossNotice(LossNotice notice) {
    auto next = std::make_shared<const LossNotice>(std::move(notice));
    const connector::MutexLock lock(mutex_);
    notice_.swap(next);
}

// Signals are for other threads.
void LineWriter::startLocked() {
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &previous);
    try {
        thread_ = std::thread([this] { run(); });
    } catch (...) {
        ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        throw;
    }
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

void LineWriter::run() {
    std::shared_ptr<const Descriptor> previous;
    Written written;
    connector::MutexLock lock(mutex_);
    for (;;) {
        while (pending_.empty()) added_.wait(lock.native());
        std::string lines = std::exchange(pending_, {});
        const auto lost = std::exchange(lost_, 0);
        const auto descriptor = descriptor_;
        const auto notice = notice_;
        isWriting_ = true;
        lock.unlock();
        if (lost > 0) lines += (notice ? (*notice)(lost) : lossNotice(lost)) + '\n';
        // What comes after a line that was given up must not look like its rest.
        if (written.endsInsideLine && descriptor == previous) lines.insert(0, 1, '\n');
        const bool wasRefused = written.lost > 0 && descriptor == previous;
        written = writeLines(descriptor->value(), lines, [this, &descriptor] {
            const connector::MutexLock inner(mutex_);
            return descriptor_ == descriptor;
        });
        if (written.lost > 0 && !wasRefused) {
            const std::string problem =
                std::string("A log cannot be written: ") + std::strerror(errno) + "\n";
            writeLines(standardError()->value(), problem, [] { return false; });
        }
        previous = descriptor;
        lock.lock();
        lost_ += written.lost;
        isWriting_ = false;
        written_.notify_all();
    }
}

}  // namespace foundation::log
