#include "v1/StartupWakeUp.h"

#include <utility>

#include "cmddistributor/CmdRequest.h"
#include "connector/Future.h"
#include "connector/Promise.h"
#include "connector/ThreadSafety.h"
#include "v1/queueTask.h"

namespace connector::interpreter::v1 {

namespace {

struct WakeUp {
    Mutex mutex;
    Future<void> done CONNECTOR_GUARDED_BY(mutex);
};

WakeUp& wakeUp() {
    static WakeUp instance;
    return instance;
}

}  // namespace

void StartupWakeUp::begin(const std::shared_ptr<zvm::ZVM>& zvm) {
    auto promise = std::make_shared<Promise<void>>();
    {
        MutexLock lock(wakeUp().mutex);
        wakeUp().done = promise->getFuture();
    }
    if (!zvm) {
        promise->setValue();
        return;
    }
    // The delegate alone holds the promise, so that a queue that drops the request resolves it, too.
    const auto delegate = std::make_shared<cmddistributor::PromiseDelegateT<void>>(
        std::move(promise), [](const cmddistributor::IIPResult&) {});
    queueTask(
        zvm, cmddistributor::RunOptions(), [] {}, delegate)
        .setReadyToExecute();
}

void StartupWakeUp::await() {
    MutexLock lock(wakeUp().mutex);
    wakeUp().done.getState()->waitUntilResolved();
}

void StartupWakeUp::end() {
    MutexLock lock(wakeUp().mutex);
    wakeUp().done = Future<void>();
}

}  // namespace connector::interpreter::v1
