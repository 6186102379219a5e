#include "output/NativeCapture.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "foundation/log/diagnostic_logger.h"
#include "output/ownerWait.h"

namespace standalone {

namespace {

constexpr std::size_t queueLimit = 16U << 20U;  // bytes
constexpr std::size_t partBytes = 256U << 10U;
constexpr auto fullQueueTimeout = std::chrono::seconds(1);

// The one that is there when the process aborts.
std::atomic<NativeCapture*> capturing{nullptr};

int makeEvent() {
    const int event = eventfd(0, EFD_CLOEXEC);
    if (event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    return event;
}

}  // namespace

NativeCapture::NativeCapture(Deliver deliver, WithInterpreterLock withInterpreterLock, Owner owner,
                             const std::array<int, 2>& pipes, HostObserver* observer)
    : deliver_(std::move(deliver)),
      withInterpreterLock_(std::move(withInterpreterLock)),
      owner_(std::move(owner)),
      observer_(observer),
      stopEvent_(makeEvent()),
      descriptors_(pipes) {
    recentErrors_.reserve(2 * recentSize);
    if (!descriptors_.areOfParent()) catchAbort();
}

void NativeCapture::start() {
    reader_ = std::thread([this] { emptyPipes(); });
    deliverer_ = std::thread([this] { deliverLoop(); });
}

NativeCapture::~NativeCapture() { close(stopEvent_); }

// Unless somebody else looks after it.
void NativeCapture::catchAbort() {
    struct sigaction previous {};
    sigaction(SIGABRT, nullptr, &previous);
    if (previous.sa_handler != SIG_DFL) return;
    capturing = this;
    struct sigaction action {};
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    action.sa_handler = [](int) {
        if (NativeCapture* capture = capturing.exchange(nullptr)) capture->writeRecentErrors();
        raise(SIGABRT);
    };
    sigaction(SIGABRT, &action, nullptr);
}

// In the handler of a signal, on the thread that aborts: makes do with system calls and waits for nobody
// long.
void NativeCapture::writeRecentErrors() CONNECTOR_TSA(no_thread_safety_analysis) {
    const auto write = [this](const char* bytes, std::size_t count) {
        pollfd ready{original(2), POLLOUT, 0};
        if (poll(&ready, 1, 100) > 0 && ::write(original(2), bytes, count) < 0) return;
    };
    bool isLocked = mutex_.try_lock();
    for (int tries = 0; tries < 100 && !isLocked; ++tries) {
        poll(nullptr, 0, 1);
        isLocked = mutex_.try_lock();
    }
    // The message may have been taken out of the pipe already.
    if (isLocked) write(recentErrors_.data(), recentErrors_.size());
    std::array<char, recentSize> rest{};
    for (ssize_t count = 0; (count = read(descriptors_.readEnd(1), rest.data(), rest.size())) > 0;) {
        write(rest.data(), static_cast<std::size_t>(count));
    }
}

// What was written just now, a second ago at the most.
void NativeCapture::rememberErrorsLocked(std::string_view bytes) {
    const auto now = std::chrono::steady_clock::now();
    if (now - std::exchange(lastErrors_, now) > std::chrono::seconds(1)) recentErrors_.clear();
    recentErrors_ += bytes.substr(bytes.size() - std::min(bytes.size(), recentSize));
    if (recentErrors_.size() > recentSize) recentErrors_.erase(0, recentErrors_.size() - recentSize);
}

void NativeCapture::stop() {
    {
        connector::MutexLock lock(mutex_);
        if (std::exchange(isStopping_, true)) return;
    }
    queued_.notify_all();
    emptied_.notify_all();
    eventfd_write(stopEvent_, 1);
    if (reader_.joinable()) reader_.join();
    if (deliverer_.joinable()) deliverer_.join();
    if (capturing.exchange(nullptr) == this) std::signal(SIGABRT, SIG_DFL);
    descriptors_.putBack();
}

void NativeCapture::drain(bool isEnd, const AfterPart& afterPart) {
    std::fflush(stdout);
    std::fflush(stderr);
    drainIfReady(afterPart);
    if (!isEnd) return;
    for (std::size_t i = 0; i < decoders_.size(); ++i) {
        std::u16string rest;
        decoders_.at(i).finish(rest);
        if (!rest.empty()) deliver_(i == 0 ? nmutil::io::STANDARD_OUTPUT : nmutil::io::STANDARD_ERROR, rest);
    }
}

// Other threads and processes may go on writing, so there is an end.
bool NativeCapture::drainIfReady(const AfterPart& afterPart) {
    for (std::size_t delivered = 0; delivered <= queueLimit && fetchPart(); delivered += partBytes) {
        deliverPart();
        if (!afterPart()) return false;
    }
    return true;
}

// Sees to it that the queue has a part, if there is one. False when there is nothing.
bool NativeCapture::fetchPart() {
    connector::MutexLock lock(mutex_);
    std::array<pollfd, 2> ends{{{descriptors_.readEnd(0), POLLIN, 0}, {descriptors_.readEnd(1), POLLIN, 0}}};
    if (queuedBytes_ < partBytes && poll(ends.data(), ends.size(), 0) > 0) {
        while (readPipesLocked() && queuedBytes_ < partBytes) {
        }
    }
    return !queue_.empty();
}

void NativeCapture::emptyPipes() {
    std::array<pollfd, 3> ends{{{descriptors_.readEnd(0), POLLIN, 0},
                                {descriptors_.readEnd(1), POLLIN, 0},
                                {stopEvent_, POLLIN, 0}}};
    for (;;) {
        if (poll(ends.data(), ends.size(), -1) < 0 && errno != EINTR) return;
        for (auto& end : ends) {
            if ((end.revents & POLLNVAL) != 0) end.fd = -1;  // code has closed it
        }
        connector::MutexLock lock(mutex_);
        awaitRoomLocked(lock.native());
        if (isStopping_) return;
        if (readPipesLocked()) queued_.notify_one();
    }
}

// A wait for the owner has an end, and is announced when it ends.
void NativeCapture::awaitRoomLocked(std::unique_lock<std::mutex>& lock) {
    auto deadline = std::chrono::steady_clock::now() + fullQueueTimeout;
    while (!isStopping_ && queuedBytes_ >= (isOwnerAwaited_ ? partBytes : queueLimit)) {
        const bool isLate = emptied_.wait_until(lock, deadline) == std::cv_status::timeout;
        if (isOwnerAwaited_ || isDelivering_) {
            deadline = std::chrono::steady_clock::now() + fullQueueTimeout;
        } else if (isLate) {
            return dropOldestLocked();
        }
    }
}

// The request that the text belongs to may end meanwhile, and another one begin.
void NativeCapture::awaitOwner() {
    const auto setAwaited = [this](bool isAwaited) {
        connector::MutexLock lock(mutex_);
        isOwnerAwaited_ = isAwaited && !isStopping_;
        return isOwnerAwaited_;
    };
    for (auto pace = owner_(); pace && pace->isBehind() && setAwaited(true); pace = owner_()) {
        pace->waitUntilCaughtUp(ownerWaitSlice);
    }
    setAwaited(false);
    emptied_.notify_one();
}

void NativeCapture::deliverLoop() {
    for (;;) {
        {
            connector::MutexLock lock(mutex_);
            while (queue_.empty() && !isStopping_) queued_.wait(lock.native());
            if (isStopping_) return;
        }
        awaitOwner();
        try {
            withInterpreterLock_([this] { deliverPart(); });
        } catch (const std::exception& error) {
            foundation::log::DiagnosticLogger("standalone::output")
                .error("Output of native code was lost: " + std::string(error.what()));
        }
    }
}

// Reads what the pipes hold, up to one pipe's capacity each. False when they were empty.
bool NativeCapture::readPipesLocked() {
    bool hasRead = false;
    for (std::size_t i = 0; i < decoders_.size(); ++i) {
        const ssize_t count = read(descriptors_.readEnd(i), scratch_.data(), scratch_.size());
        if (count <= 0) continue;
        const std::string_view bytes(scratch_.data(), static_cast<std::size_t>(count));
        queuedBytes_ += bytes.size();
        if (observer_ != nullptr) observer_->written(bytes);
        if (i == 1) rememberErrorsLocked(bytes);
        const auto stream = i == 0 ? nmutil::io::STANDARD_OUTPUT : nmutil::io::STANDARD_ERROR;
        if (!queue_.empty() && queue_.back().stream == stream && queue_.back().bytes.size() < pipeCapacity) {
            queue_.back().bytes += bytes;
        } else {
            queue_.push_back(Chunk{stream, std::string(bytes)});
        }
        hasRead = true;
    }
    return hasRead;
}

void NativeCapture::dropOldestLocked() {
    while (!queue_.empty() && queuedBytes_ > queueLimit / 2) {
        droppedBytes_ += queue_.front().bytes.size();
        queuedBytes_ -= queue_.front().bytes.size();
        queue_.pop_front();
    }
}

// With the interpreter's lock, which keeps deliveries one at a time and in order.
void NativeCapture::deliverPart() {
    std::vector<Chunk> chunks;
    std::size_t dropped = 0;
    {
        connector::MutexLock lock(mutex_);
        for (std::size_t bytes = 0; !queue_.empty() && bytes < partBytes;) {
            bytes += queue_.front().bytes.size();
            chunks.push_back(std::move(queue_.front()));
            queue_.pop_front();
            queuedBytes_ -= chunks.back().bytes.size();
        }
        dropped = std::exchange(droppedBytes_, 0);
        isDelivering_ = true;
    }
    struct Delivering {
        ~Delivering() {
            connector::MutexLock lock(capture.mutex_);
            capture.isDelivering_ = false;
        }
        NativeCapture& capture;
    };
    const Delivering delivering{*this};
    emptied_.notify_one();
    if (dropped > 0) {
        const std::string notice = "\n[" + std::to_string(dropped) + " bytes of output were lost]\n";
        deliver_(nmutil::io::STANDARD_OUTPUT, std::u16string(notice.begin(), notice.end()));
    }
    std::u16string text;
    for (const Chunk& chunk : chunks) {
        text.clear();
        decoders_.at(chunk.stream == nmutil::io::STANDARD_OUTPUT ? 0 : 1).decode(chunk.bytes, text);
        if (!text.empty()) deliver_(chunk.stream, text);
    }
}

}  // namespace standalone
