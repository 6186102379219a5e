#include "thread/RequestQueue.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>
#include <utility>

#include <sched.h>

#include "foundation/log/diagnostic_logger.h"
#include "thread/dequeueRules.h"

namespace standalone {

namespace {

using cmddistributor::RuntimeException;
using cmddistributor::WhenToDequeue;

bool isForRunningCode(const QueuedRequest& request) {
    return request.isReady && request.options.whenToDequeue() == WhenToDequeue::Ppe;
}

bool hasSeveralProcessors() {
    cpu_set_t set;
    return sched_getaffinity(0, sizeof set, &set) != 0 || CPU_COUNT(&set) > 1;
}

// Watches `changes` for a few microseconds.
bool spinUntilChanged(const std::atomic<unsigned>& changes, unsigned seen) {
    constexpr auto duration = std::chrono::microseconds(20);
    const auto end = std::chrono::steady_clock::now() + duration;
    do {
        if (changes.load(std::memory_order_relaxed) != seen) return true;
        std::this_thread::yield();
    } while (std::chrono::steady_clock::now() < end);
    return false;
}

}  // namespace

RequestQueue::RequestQueue(Signals signals, std::size_t capacity)
    : signals_(std::move(signals)), capacity_(capacity), hasProcessors_(hasSeveralProcessors()) {}

void RequestQueue::enqueue(IDType id, std::shared_ptr<cmddistributor::CmdRequest> request,
                           cmddistributor::RunOptions options,
                           std::shared_ptr<cmddistributor::PromiseDelegate> delegate) {
    auto queued = std::make_unique<QueuedRequest>(
        QueuedRequest{id, std::move(request), std::move(options), std::move(delegate)});
    connector::MutexLock lock(mutex_);
    if (isStopped_) {
        throw RuntimeException(nmutil::cmddistributor::EXECUTION_CANCELLED, "NUMORA:queue:stopped",
                               u"The interpreter has stopped.");
    }
    if (entries_.size() >= capacity_) {
        throw RuntimeException(nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:queue:full",
                               u"Too many requests are waiting for the interpreter.");
    }
    entries_.push_back(Entry{std::move(queued), {}});
}

void RequestQueue::setReadyToExecute(IDType id) {
    bool isWaitedFor = false;
    {
        connector::MutexLock lock(mutex_);
        const auto entry = findLocked(id);
        if (entry == entries_.end()) return;
        entry->request->isReady = true;
        if (isForRunningCode(*entry->request)) {
            ++readyForRunningCode_;
            signalLocked();
        }
        changes_.fetch_add(1, std::memory_order_relaxed);
        isWaitedFor = std::exchange(isWaiting_, false);
    }
    if (isWaitedFor) changed_.post();  // without the lock, which the woken thread takes first
}

void RequestQueue::addContinuation(IDType id, std::function<void()> continuation) {
    {
        connector::MutexLock lock(mutex_);
        if (const auto entry = findLocked(id); entry != entries_.end()) {
            entry->continuations.push_back(std::move(continuation));
            return;
        }
        if (const auto running = findRunningLocked(id); running != running_.end()) {
            running->continuations.push_back(std::move(continuation));
            return;
        }
    }
    continuation();
}

zvm::TaskReference::CancelStatus RequestQueue::cancel(IDType id, bool interruptIfRunning) {
    using zvm::TaskReference;
    Entry entry;
    {
        connector::MutexLock lock(mutex_);
        if (const auto found = findLocked(id); found != entries_.end()) {
            entry = removeLocked(found);
            wakeLocked();  // work for idle times may have waited for this one
        } else if (const auto running = findRunningLocked(id); running == running_.end()) {
            return TaskReference::CancelStatus::NotFound;
        } else {
            if (interruptIfRunning) interruptLocked(*running);
            return TaskReference::CancelStatus::AlreadyStarted;
        }
    }
    endCancelled(entry);
    return TaskReference::CancelStatus::Cancelled;
}

// What has begun is marked itself; what has not, through its request.
void RequestQueue::interruptLocked(Running& running) {
    if (!codes_.interrupt(running.id)) running.isInterrupted = true;
    signalLocked();
    wakeLocked();
}

void RequestQueue::interrupt() {
    connector::MutexLock lock(mutex_);
    for (Running& running : running_) interruptLocked(running);
    codes_.interruptAll();  // that of no request, too, such as what was typed ahead
    signalLocked();
    wakeLocked();
}

void RequestQueue::awaitInterrupted(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    connector::MutexLock lock(mutex_);
    const auto interrupted = codes_.interruptedAtPrompt();
    const auto isDealtWith = [this](std::uint64_t number)
                                 CONNECTOR_REQUIRES(mutex_) { return codes_.hasDealtWithInterrupt(number); };
    while (!isStopped_ && !std::all_of(interrupted.begin(), interrupted.end(), isDealtWith)) {
        if (promptChanged_.wait_until(lock.native(), deadline) == std::cv_status::timeout) return;
    }
}

bool RequestQueue::takeInterrupt() {
    connector::MutexLock lock(mutex_);
    if (!codes_.takeInterrupt()) return false;
    stopSignalsLocked();
    return true;
}

void RequestQueue::returnInterrupt() {
    connector::MutexLock lock(mutex_);
    if (codes_.returnInterrupt()) signalLocked();
}

bool RequestQueue::clearInterrupts() {
    connector::MutexLock lock(mutex_);
    bool wasInterrupted = codes_.clearInterrupts();
    for (Running& running : running_) wasInterrupted |= std::exchange(running.isInterrupted, false);
    stopSignalsLocked();
    promptChanged_.notify_all();
    return wasInterrupted;
}

bool RequestQueue::isInterrupted() const {
    connector::MutexLock lock(mutex_);
    const auto isMarked = [](const Running& running) { return running.isInterrupted; };
    return std::any_of(running_.begin(), running_.end(), isMarked) || codes_.isInterrupted();
}

bool RequestQueue::setInterruptEnabled(bool isEnabled) {
    connector::MutexLock lock(mutex_);
    const bool wasEnabled = codes_.setInterruptEnabled(isEnabled);
    if (isEnabled && !wasEnabled) {
        signalLocked();
        wakeLocked();
    }
    return wasEnabled;
}

void RequestQueue::beginCode(IDType id) {
    connector::MutexLock lock(mutex_);
    const auto running = findRunningLocked(id);
    const bool isInterrupted = running != running_.end() && std::exchange(running->isInterrupted, false);
    codes_.begin(id, isInterrupted);
    signalLocked();
}

void RequestQueue::openCode() {
    connector::MutexLock lock(mutex_);
    codes_.setOpen(true);
    signalLocked();
}

void RequestQueue::closeCode() {
    connector::MutexLock lock(mutex_);
    codes_.setOpen(false);
}

void RequestQueue::endCode() {
    connector::MutexLock lock(mutex_);
    codes_.end();
    stopSignalsLocked();
    signalLocked();  // the code around it may have been interrupted meanwhile
    promptChanged_.notify_all();
}

void RequestQueue::setAtPrompt(bool isAtPrompt) {
    connector::MutexLock lock(mutex_);
    codes_.setAtPrompt(isAtPrompt);
    promptChanged_.notify_all();
}

bool RequestQueue::isSignalWantedLocked() const {
    return !codes_.isEmpty() && (readyForRunningCode_ > 0 || codes_.isInterrupted());
}

// Signals go on for as long as there is something to be seen, since one of them may be missed: it may come
// just before a system call, or while CPython works out what it is to look at next. They are started and
// ended under the mutex, so that none ends those of another.
void RequestQueue::signalLocked() {
    if (!isSignalWantedLocked()) return;
    signals_.start();
    isSignalling_ = true;
}

void RequestQueue::stopSignalsLocked() {
    if (!isSignalling_ || isSignalWantedLocked()) return;
    signals_.stop();
    isSignalling_ = false;
}

void RequestQueue::wakeLocked() {
    changes_.fetch_add(1, std::memory_order_relaxed);
    if (std::exchange(isWaiting_, false)) changed_.post();
}

std::unique_ptr<QueuedRequest> RequestQueue::tryTake(InputRequester prompt) {
    connector::MutexLock lock(mutex_);
    return takeLocked(prompt);
}

std::unique_ptr<QueuedRequest> RequestQueue::take(InputRequester prompt,
                                                  std::optional<std::chrono::milliseconds> limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit.value_or(std::chrono::milliseconds(0));
    connector::MutexLock lock(mutex_);
    for (;;) {
        if (isStopped_ || codes_.mayTakeInterrupt()) return nullptr;
        if (auto request = takeLocked(prompt)) return request;
        if (hasProcessors_) {
            // A client often sends its next request as soon as it has its answer. To look out for it for a
            // moment costs less than to sleep and be woken, which takes long on another processor.
            const unsigned seen = changes_.load(std::memory_order_relaxed);
            lock.unlock();
            const bool hasChanged = spinUntilChanged(changes_, seen);
            lock.lock();
            if (hasChanged || seen != changes_.load(std::memory_order_relaxed)) continue;
        }
        isWaiting_ = true;
        lock.unlock();
        const bool isWoken = limit ? changed_.waitUntil(deadline) : (changed_.wait(), true);
        lock.lock();
        if (isWoken) continue;
        if (std::exchange(isWaiting_, false)) return takeLocked(prompt);
        changed_.wait();  // somebody is about to post
    }
}

void RequestQueue::finish(const QueuedRequest& request, const cmddistributor::IIPResult& result) {
    Continuations continuations;
    {
        connector::MutexLock lock(mutex_);
        if (const auto running = findRunningLocked(request.id); running != running_.end()) {
            continuations = std::move(running->continuations);
            running_.erase(running);
        }
    }
    end(request, continuations, result);
}

void RequestQueue::stop() {
    std::deque<Entry> entries;
    {
        connector::MutexLock lock(mutex_);
        isStopped_ = true;
        entries.swap(entries_);
        readyForRunningCode_ = 0;
        stopSignalsLocked();
        wakeLocked();
        promptChanged_.notify_all();
    }
    for (Entry& entry : entries) endCancelled(entry);
}

bool RequestQueue::isStopped() const {
    connector::MutexLock lock(mutex_);
    return isStopped_;
}

std::unique_ptr<QueuedRequest> RequestQueue::takeLocked(InputRequester prompt) {
    const auto isEligible = [prompt](const Entry& entry) {
        return entry.request->isReady && mayRun(entry.request->options.whenToDequeue(), prompt);
    };
    const auto isIdle = [](const Entry& entry) {
        return entry.request->options.whenToDequeue() == WhenToDequeue::Idle;
    };
    // The system's own tasks come first: they belong to requests that have begun.
    auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
        return isEligible(entry) && !isIdle(entry) &&
               entry.request->request->getStreamID() == cmddistributor::IqmStreamID::Internal;
    });
    if (found == entries_.end()) {
        found = std::find_if(entries_.begin(), entries_.end(),
                             [&](const Entry& entry) { return isEligible(entry) && !isIdle(entry); });
    }
    if (found == entries_.end()) found = std::find_if(entries_.begin(), entries_.end(), isEligible);
    if (found == entries_.end()) return nullptr;
    // Work for idle times waits until nothing else is queued, ready or not, that could run here.
    if (isIdle(*found) && !std::all_of(entries_.begin(), entries_.end(), [&](const Entry& entry) {
            return isIdle(entry) || !mayRun(entry.request->options.whenToDequeue(), prompt);
        })) {
        return nullptr;
    }

    Entry entry = removeLocked(found);
    running_.push_back(Running{entry.request->id, std::move(entry.continuations)});
    return std::move(entry.request);
}

RequestQueue::Entry RequestQueue::removeLocked(std::deque<Entry>::iterator found) {
    Entry entry = std::move(*found);
    entries_.erase(found);
    if (isForRunningCode(*entry.request)) {
        --readyForRunningCode_;
        stopSignalsLocked();
    }
    return entry;
}

std::deque<RequestQueue::Entry>::iterator RequestQueue::findLocked(IDType id) {
    return std::find_if(entries_.begin(), entries_.end(),
                        [id](const Entry& entry) { return entry.request->id == id; });
}

std::vector<RequestQueue::Running>::iterator RequestQueue::findRunningLocked(IDType id) {
    return std::find_if(running_.begin(), running_.end(),
                        [id](const Running& running) { return running.id == id; });
}

void RequestQueue::end(const QueuedRequest& request, Continuations& continuations,
                       const cmddistributor::IIPResult& result) {
    if (request.delegate) request.delegate->complete(result);
    for (const auto& continuation : continuations) {
        try {
            continuation();
        } catch (const std::exception& error) {
            foundation::log::DiagnosticLogger("standalone::queue")
                .error("A continuation of a finished request failed: " + std::string(error.what()));
        }
    }
}

void RequestQueue::endCancelled(Entry& entry) {
    end(*entry.request, entry.continuations,
        cmddistributor::IIPResult(
            entry.request->id,
            RuntimeException(nmutil::cmddistributor::EXECUTION_CANCELLED, "NUMORA:queue:cancelled",
                             u"Request was cancelled before starting.")));
}

}  // namespace standalone
