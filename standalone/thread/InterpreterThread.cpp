#include "thread/InterpreterThread.h"

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "connector/configuration/settings.h"
#include "foundation/log/diagnostic_logger.h"
#include "host/Environment.h"
#include "output/ownerWait.h"
#include "output/promptEvents.h"
#include "python/interpreterLock.h"
#include "shutdown/ShutdownObject.h"
#include "standalone/process.h"

namespace standalone {

namespace {

constexpr auto interruptInterval = std::chrono::milliseconds(200);
constexpr int interruptsAtStop = 25;

}  // namespace

InterpreterThread::InterpreterThread(const HostOptions& options, host::Environment& environment,
                                     LocalConfiguration& configuration)
    : options_(options),
      environment_(environment),
      configuration_(configuration),
      queue_(std::make_shared<RequestQueue>(
          RequestQueue::Signals{&Interrupts::startSignals, &Interrupts::stopSignals})),
      zvm_(std::make_shared<LocalZvm>(queue_)),
      announcements_(std::make_shared<LocalEventManager>(), running_),
      window_(running_, announcements_, {.columns = options.columns, .rows = options.rows}),
      placedEvents_(running_, window_, announcements_),
      prompts_(*queue_, {.beforeWait =
                             [this] {
                                 window_.drain();
                                 prompts_.announce(prompts_.current(), false);
                                 window_.requestInput(prompts_.current());
                             },
                         .run = [this](auto queued) { runner_->run(std::move(queued)); },
                         .checkInterrupts = [this] { return checkInterrupts(); },
                         .announce =
                             [this](const auto& prompt, bool isBaseLevel) {
                                 if (options_.observer != nullptr) {
                                     options_.observer->isIn(stateAt(prompt.requester));
                                 }
                                 raisePromptEvents(placedEvents_, prompt);
                                 announcements_.announcePrompt(prompt, isBaseLevel);
                             }}) {
    std::promise<void> started;
    thread_ = std::thread([this, &started] { threadMain(started); });
    try {
        started.get_future().get();
    } catch (...) {
        thread_.join();
        throw;
    }
}

InterpreterThread::~InterpreterThread() {
    queue_->stop();
    {
        connector::MutexLock lock(mutex_);
        for (int i = 0; i < interruptsAtStop && !hasEnded_; ++i) {
            lock.unlock();
            zvm_->interrupt();
            lock.lock();
            if (!hasEnded_) endedChanged_.wait_for(lock.native(), interruptInterval);
        }
        if (!hasEnded_) {
            foundation::log::DiagnosticLogger("standalone::interpreter")
                .error("The running code does not end; the process ends without it.");
            foundation::log::flush(interruptInterval);
            std::_Exit(shutdown::errorStatus() != 0 ? shutdown::errorStatus() : 1);
        }
    }
    thread_.join();
    announcements_.events()->stop();
}

void InterpreterThread::configure(const std::string& key, const std::string& value) {
    connector::configuration::requireSetting(key, value);
    configuration_.set(key, value);
}

void InterpreterThread::threadMain(std::promise<void>& started) {
    try {
        start();
    } catch (...) {
        window_.close();
        started.set_exception(std::current_exception());
        return;
    }
    started.set_value();
    serve();
    finish();
    {
        connector::MutexLock lock(mutex_);
        hasEnded_ = true;
    }
    endedChanged_.notify_all();
}

// Threads that start here take over the blocked signals, so they come before `attach`.
void InterpreterThread::start() {
    blockInterpreterSignals();
    window_.open({.isCapturing = options_.captureFileDescriptors,
                  .pipes = options_.capturePipes,
                  .observer = options_.observer});
    InterpreterServices& services = *this;
    python_ = std::make_unique<PythonRuntime>(services, options_.virtualEnvironment);
    if (options_.traceDescriptor >= 0) python_->traceTo(options_.traceDescriptor);
    window_.startCapture();
    Interrupts::attach();
    runner_ = std::make_unique<RequestRunner>(*queue_, prompts_, running_, window_, announcements_,
                                              placedEvents_, *python_, options_.observer);
    host::install(&environment_);
}

void InterpreterThread::serve() {
    while (!queue_->isStopped()) {
        runner_->runTypeAhead();
        auto request = queue_->tryTake(prompts_.current());
        if (!request) {
            withoutInterpreterLock([&] { request = queue_->take(prompts_.current()); });
        }
        if (request) runner_->run(std::move(request));
    }
}

void InterpreterThread::finish() {
    shutdown::ShutdownRegistry::run(true);
    python_->finish();
    Interrupts::detach();
    withoutInterpreterLock([this] { heartbeat_.stop(); });
    window_.stopCapture();
    runner_.reset();
    python_.reset();
    host::install(nullptr);
    window_.close();
}

ReadResult InterpreterThread::readLine(ShownPrompt question, std::u16string& line) {
    requireInputAllowed();
    return prompts_.readLine(std::move(question), line);
}

ReadResult InterpreterThread::readKey() {
    requireInputAllowed();
    return prompts_.readKey();
}

void InterpreterThread::requireInputAllowed() const {
    if (running_.isBetweenSteps())
        throw std::runtime_error("A function that is called while other code runs cannot read typed input.");
}

// Signals may come before there is a runner, and after it.
void InterpreterThread::runRequests() {
    if (runner_) runner_->runBetweenSteps();
}
bool InterpreterThread::checkInterrupts() {
    return runner_ ? runner_->checkInterrupts() : Interrupts::check();
}

// Other threads of Python code are told of no signals.
bool InterpreterThread::awaitOwner() {
    return waitForOwner(running_.paceOfThisThread(),
                        [this] { return !isInterpreterThread() || checkInterrupts(); });
}

bool InterpreterThread::flush() {
    if (!flushTaken()) return false;
    if (!hasCapability("notebook")) return true;
    window_.flush();
    return awaitOwner();
}

const cmddistributor::RunOptions* InterpreterThread::runningOptions() const {
    const RunningRequest* request = running_.ofThisThread();
    return request != nullptr ? &request->options : nullptr;
}

}  // namespace standalone
