#include "support/FakeCmdDistributor.h"

#include <algorithm>

#include "cmddistributor/IIP.h"
#include "cmddistributor/IIPResult.h"
#include "iqm/plugins.h"
#include "nmutil/events.h"

namespace fake {

using cmddistributor::IIPResult;
using cmddistributor::RuntimeException;

void FakeCmdDistributor::enqueue(IDType id, std::shared_ptr<cmddistributor::CmdRequest> request,
                                 cmddistributor::RunOptions options,
                                 std::shared_ptr<cmddistributor::PromiseDelegate> delegate) {
    connector::MutexLock lock(mutex_);
    if (refusal_) throw RuntimeException(*refusal_);
    all_.push_back(std::make_shared<Queued>(
        Queued{{id, std::move(request), std::move(options), std::move(delegate)}, State::Waiting, {}}));
}

void FakeCmdDistributor::setReadyToExecute(IDType id) {
    connector::MutexLock lock(mutex_);
    if (const auto entry = findLocked(id); entry && entry->state == State::Waiting)
        entry->state = State::Ready;
    changed_.notify_all();
}

void FakeCmdDistributor::addContinuation(IDType id, std::function<void()> continuation) {
    {
        connector::MutexLock lock(mutex_);
        if (const auto entry = findLocked(id)) {
            entry->continuations.push_back(std::move(continuation));
            return;
        }
    }
    continuation();
}

FakeCmdDistributor::CancelStatus FakeCmdDistributor::cancel(IDType id, bool interruptIfRunning) {
    Pointer entry;
    bool isRunning = false;
    {
        connector::MutexLock lock(mutex_);
        entry = findLocked(id);
        if (!entry) return CancelStatus::NotFound;
        isRunning = std::exchange(entry->state, State::Running) == State::Running;  // nobody else takes it
    }
    if (!isRunning) {
        finish(entry, {id, RuntimeException(nmutil::cmddistributor::EXECUTION_CANCELLED, "NUMORA:cancelled",
                                            u"The request was taken back.")});
        return CancelStatus::Cancelled;
    }
    if (interruptIfRunning && onInterrupt) onInterrupt();
    return CancelStatus::AlreadyStarted;
}

void FakeCmdDistributor::refuse(RuntimeException reason) {
    connector::MutexLock lock(mutex_);
    refusal_ = std::move(reason);
}

bool FakeCmdDistributor::runNext(When when) {
    Pointer entry;
    {
        connector::MutexLock lock(mutex_);
        entry = takeReadyLocked(when);
    }
    if (entry) run(entry);
    return entry != nullptr;
}

void FakeCmdDistributor::startWorker() {
    worker_ = std::thread([this] { runWorker(); });
}

void FakeCmdDistributor::stopWorker() {
    {
        connector::MutexLock lock(mutex_);
        isStopping_ = true;
        changed_.notify_all();
    }
    if (worker_.joinable()) worker_.join();
    connector::MutexLock lock(mutex_);
    isStopping_ = false;
}

void FakeCmdDistributor::forget() {
    std::vector<Pointer> forgotten;  // end after the lock
    const connector::MutexLock lock(mutex_);
    forgotten.swap(all_);
}

std::vector<FakeCmdDistributor::Entry> FakeCmdDistributor::enqueued() const {
    connector::MutexLock lock(mutex_);
    std::vector<Entry> entries;
    for (const Pointer& entry : all_) entries.push_back(*entry);
    return entries;
}

FakeCmdDistributor::Pointer FakeCmdDistributor::findLocked(IDType id) const {
    const auto found = std::ranges::find_if(
        all_, [id](const Pointer& entry) { return entry->id == id && entry->state != State::Ended; });
    return found == all_.end() ? nullptr : *found;
}

FakeCmdDistributor::Pointer FakeCmdDistributor::takeReadyLocked(When when) {
    const auto found = std::ranges::find_if(all_, [when](const Pointer& entry) {
        return entry->state == State::Ready && (!when || *when == entry->options.whenToDequeue());
    });
    if (found == all_.end()) return nullptr;
    (*found)->state = State::Running;
    return *found;
}

void FakeCmdDistributor::runWorker() {
    for (;;) {
        Pointer entry;
        {
            connector::MutexLock lock(mutex_);
            while (!isStopping_ && !(entry = takeReadyLocked({}))) changed_.wait(lock.native());
        }
        if (!entry) return;
        run(entry);
    }
}

void FakeCmdDistributor::run(const Pointer& entry) {
    auto* const outer = std::exchange(running_, entry->request.get());
    std::unique_ptr<IIPResult> result;
    try {
        result = resultOf(*entry);
    } catch (const RuntimeException& error) {
        result = std::make_unique<IIPResult>(entry->id, error);
    } catch (const std::exception& error) {  // of the code under test: the thread lives on
        const std::string text = error.what();
        result = std::make_unique<IIPResult>(
            entry->id, RuntimeException(nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:host",
                                        std::u16string(text.begin(), text.end())));
    }
    running_ = outer;
    finish(entry, *result);
}

std::unique_ptr<IIPResult> FakeCmdDistributor::resultOf(const Entry& entry) {
    const cmddistributor::IIP* const iip = entry.request->getIIP().get();
    if (const auto* call = dynamic_cast<const cmddistributor::FEvalIIP*>(iip)) {
        auto outputs = onFEval ? onFEval(*call) : std::vector<matrix::ArrayPtr>();
        return std::make_unique<cmddistributor::FEvalResult>(entry.id, boost::none, std::move(outputs));
    }
    if (const auto* task = dynamic_cast<const cmddistributor::PackagedTaskIIP*>(iip)) {
        task->run();
        return std::make_unique<IIPResult>(entry.id, boost::none);
    }
    return resultOfPlugin(entry);
}

std::unique_ptr<IIPResult> FakeCmdDistributor::resultOfPlugin(const Entry& entry) {
    const auto plugin = iqm::PacketInfo::createPlugin({entry.id, entry.request->getIIP()}, {});
    if (!plugin)
        throw std::logic_error("No plug-in is registered for " + entry.request->getIIP()->pluginName());
    boost::optional<RuntimeException> failure;
    plugin->pre();
    try {
        iqm::Workspace workspace;
        plugin->execute(workspace);
    } catch (const RuntimeException& error) {
        failure = error;
        if (const auto& callback = entry.options.printableErrorCallback()) {
            callback(nmutil::io::PrintableErrorEvent(error.getText(), error));
        } else {
            showError_(error);
        }
        plugin->processMFileError();
    }
    plugin->post();
    return plugin->createResult(std::move(failure));
}

void FakeCmdDistributor::finish(const Pointer& entry, const IIPResult& result) {
    if (entry->delegate) entry->delegate->complete(result);
    std::vector<std::function<void()>> continuations;
    {
        connector::MutexLock lock(mutex_);
        entry->state = State::Ended;
        continuations.swap(entry->continuations);
    }
    for (const auto& continuation : continuations) continuation();
}

}  // namespace fake
