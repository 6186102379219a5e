#include "support/FakeCmdDistributor.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

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
    auto entry = std::make_shared<Entry>();
    entry->id = id;
    entry->request = std::move(request);
    entry->options = std::move(options);
    entry->delegate = std::move(delegate);
    all_.push_back(entry);
    waiting_.push_back(std::move(entry));
    changed_.notify_all();
}

void FakeCmdDistributor::setReadyToExecute(IDType id) {
    connector::MutexLock lock(mutex_);
    if (const EntryPtr entry = findLocked(waiting_, id)) entry->isReady = true;
    changed_.notify_all();
}

void FakeCmdDistributor::addContinuation(IDType id, std::function<void()> continuation) {
    {
        connector::MutexLock lock(mutex_);
        EntryPtr entry = findLocked(waiting_, id);
        if (!entry) entry = findLocked(started_, id);
        if (entry) {
            entry->continuations.push_back(std::move(continuation));
            return;
        }
    }
    continuation();
}

FakeCmdDistributor::CancelStatus FakeCmdDistributor::cancel(IDType id, bool interruptIfRunning) {
    EntryPtr entry;
    bool isRunning = false;
    {
        connector::MutexLock lock(mutex_);
        entry = findLocked(waiting_, id);
        std::erase(waiting_, entry);
        isRunning = findLocked(started_, id) != nullptr;
    }
    if (entry) {
        finish(entry, {id, RuntimeException(nmutil::cmddistributor::EXECUTION_CANCELLED, "NUMORA:cancelled",
                                            u"The request was taken back.")});
        return CancelStatus::Cancelled;
    }
    if (isRunning && interruptIfRunning && onInterrupt) onInterrupt();
    return isRunning ? CancelStatus::AlreadyStarted : CancelStatus::NotFound;
}

void FakeCmdDistributor::refuse(RuntimeException reason) {
    connector::MutexLock lock(mutex_);
    refusal_ = std::move(reason);
}

bool FakeCmdDistributor::runNext(std::optional<cmddistributor::WhenToDequeue> when) {
    EntryPtr entry;
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
    std::vector<EntryPtr> forgotten;
    const connector::MutexLock lock(mutex_);
    for (auto* entries : {&all_, &waiting_, &started_}) {
        forgotten.insert(forgotten.end(), entries->begin(), entries->end());
        entries->clear();
    }
}

std::vector<FakeCmdDistributor::Entry> FakeCmdDistributor::enqueued() const {
    connector::MutexLock lock(mutex_);
    std::vector<Entry> entries;
    for (const EntryPtr& entry : all_) {
        entries.push_back({entry->id, entry->request, entry->options, entry->delegate, {}, {}});
    }
    return entries;
}

FakeCmdDistributor::EntryPtr FakeCmdDistributor::findLocked(const std::vector<EntryPtr>& entries,
                                                            IDType id) const {
    const auto found = std::ranges::find_if(entries, [id](const EntryPtr& entry) { return entry->id == id; });
    return found == entries.end() ? nullptr : *found;
}

FakeCmdDistributor::EntryPtr FakeCmdDistributor::takeReadyLocked(
    std::optional<cmddistributor::WhenToDequeue> when) {
    const auto found = std::ranges::find_if(waiting_, [when](const EntryPtr& entry) {
        return entry->isReady && (!when || *when == entry->options.whenToDequeue());
    });
    if (found == waiting_.end()) return nullptr;
    EntryPtr entry = *found;
    waiting_.erase(found);
    started_.push_back(entry);
    return entry;
}

void FakeCmdDistributor::runWorker() {
    for (;;) {
        EntryPtr entry;
        {
            connector::MutexLock lock(mutex_);
            while (!isStopping_ && !(entry = takeReadyLocked({}))) changed_.wait(lock.native());
        }
        if (!entry) return;
        run(entry);
    }
}

void FakeCmdDistributor::run(const EntryPtr& entry) {
    auto* const outer = std::exchange(running_, entry->request.get());
    std::unique_ptr<IIPResult> result;
    try {
        result = resultOf(*entry);
    } catch (const RuntimeException& error) {
        result = std::make_unique<IIPResult>(entry->id, error);
    } catch (
        const std::exception& error) {  // from the code under test: the request fails, the thread lives on
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
        show(entry, error);
        plugin->processMFileError();
    }
    plugin->post();
    return plugin->createResult(std::move(failure));
}

void FakeCmdDistributor::show(const Entry& entry, const RuntimeException& error) {
    if (const auto& callback = entry.options.printableErrorCallback()) {
        callback(nmutil::io::PrintableErrorEvent(error.getText(), error));
    } else {
        showError_(error);
    }
}

void FakeCmdDistributor::finish(const EntryPtr& entry, const IIPResult& result) {
    if (entry->delegate) entry->delegate->complete(result);
    std::vector<std::function<void()>> continuations;
    {
        connector::MutexLock lock(mutex_);
        std::erase(started_, entry);
        continuations.swap(entry->continuations);
    }
    for (const auto& continuation : continuations) continuation();
}

}  // namespace fake
