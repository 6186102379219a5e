#pragma once

#include <condition_variable>
#include <cstddef>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "connector/ThreadSafety.h"
#include "output/Announcements.h"
#include "output/CommandWindow.h"
#include "output/PlacedEvents.h"
#include "output/RunningRequests.h"
#include "python/InterpreterServices.h"
#include "python/PythonRuntime.h"
#include "services/LocalConfiguration.h"
#include "standalone/HostObserver.h"
#include "standalone/HostOptions.h"
#include "thread/Heartbeat.h"
#include "thread/Interrupts.h"
#include "thread/LocalZvm.h"
#include "thread/PromptReader.h"
#include "thread/RequestQueue.h"
#include "thread/RequestRunner.h"

namespace host {
class Environment;
}

namespace standalone {

/// The thread that owns CPython, with its queue, its prompts and its window, from its start to its end.
///
///     starting -> idle (base prompt) <-> running <-> waiting at a prompt of the code -> stopping -> ended
///
/// Threads: the interpreter thread runs everything but the constructor, the destructor and what the parts
/// document for other threads. Lock order: the interpreter's lock (the GIL) first, then any of the leaf
/// mutexes.
class InterpreterThread : private InterpreterServices {
public:
    /// Starts the thread, which installs `environment` while it serves requests.
    /// Owns: borrows `environment` and `configuration`.  Blocks: until requests are taken.  Throws:
    /// std::runtime_error.
    InterpreterThread(const HostOptions& options, host::Environment& environment,
                      LocalConfiguration& configuration);
    /// Stops it: fails what waits, interrupts what runs, for up to five seconds. Code that does not end even
    /// then ends the process, since nothing of it could be freed safely.
    ~InterpreterThread() override;
    InterpreterThread(const InterpreterThread&) = delete;
    InterpreterThread& operator=(const InterpreterThread&) = delete;

    // Its parts, from its construction to its end.
    RequestQueue& queue() { return *queue_; }
    PromptReader& prompts() { return prompts_; }
    Heartbeat& heartbeat() { return heartbeat_; }
    CommandWindow& window() { return window_; }
    const std::shared_ptr<LocalZvm>& zvm() const { return zvm_; }
    const std::shared_ptr<LocalEventManager>& events() const { return announcements_.events(); }
    // Those that come and go with CPython.  Threads: the interpreter's.
    PythonRuntime& python() { return *python_; }
    RequestRunner& runner() { return *runner_; }

private:
    void threadMain(std::promise<void>& started);
    void start();
    void serve();
    void finish();

    // InterpreterServices
    bool print(nmutil::io::StreamTypeEnum stream, std::u16string_view text) override {
        if (const auto taker = running_.printedTakerOfThisThread()) return (*taker)(stream, text);
        if (options_.observer != nullptr) options_.observer->printed(text);
        window_.print(stream, text);
        return awaitOwner();
    }
    bool beforePrint() override {
        return window_.drainIfReady([this] { return awaitOwner(); });
    }
    bool flush() override;
    void takePrinted(std::shared_ptr<const PrintedTaker> taker) override {
        running_.takePrinted(std::move(taker));
    }
    bool awaitOwner();
    ReadResult readLine(ShownPrompt question, std::u16string& line) override;
    ReadResult readKey() override;
    void requireInputAllowed() const;
    void runRequests() override;
    bool checkInterrupts() override;
    void returnInterrupt() override { queue_->returnInterrupt(); }
    bool setInterruptEnabled(bool isEnabled) override { return queue_->setInterruptEnabled(isEnabled); }
    bool clearWindow() override {
        window_.clear();
        return awaitOwner();
    }
    bool moveHome() override {
        window_.moveHome();
        return awaitOwner();
    }
    ThreadStarter starterOfNewThread() const override { return running_.starterOfNewThread(); }
    void setStarter(const ThreadStarter& starter) override { RunningRequests::setStarter(starter); }
    bool hasSubscribers(std::u16string_view tag) const override { return announcements_.hasSubscribers(tag); }
    bool postEvent(std::u16string tag, TaggedEvent::Members members, std::size_t bytes) override {
        announcements_.post(std::move(tag), std::move(members), bytes,
                            running_.paceOfThisThread() != nullptr);
        return awaitOwner();
    }
    bool raiseEvent(std::u16string tag, TaggedEvent::Members members) override {
        if (!flushTaken()) return false;
        placedEvents_.raise(std::move(tag), std::move(members));
        return awaitOwner();
    }
    /// Has the function that takes what this request prints pass on what it has. False when it fails.
    bool flushTaken() const {
        const auto taker = running_.printedTakerOfThisThread();
        return !taker || (*taker)(nmutil::io::STANDARD_OUTPUT, {});
    }
    void configure(const std::string& key, const std::string& value) override;
    InterpreterState state() const override { return runner_ ? runner_->state() : InterpreterState(); }
    bool isInterpreterThread() const override { return Interrupts::isSignalThread(); }
    std::string requestName() const override { return running_.nameOfThisThread(); }
    const cmddistributor::RunOptions* runningOptions() const override;
    bool hasCapability(std::string_view capability) const override {
        return running_.hasCapability(capability);
    }

    const HostOptions options_;
    host::Environment& environment_;
    LocalConfiguration& configuration_;
    const std::shared_ptr<RequestQueue> queue_;
    const std::shared_ptr<LocalZvm> zvm_;
    Announcements announcements_;

    // Of the interpreter thread.
    RunningRequests running_;
    CommandWindow window_;
    PlacedEvents placedEvents_;
    PromptReader prompts_;
    Heartbeat heartbeat_;
    std::unique_ptr<PythonRuntime> python_;
    std::unique_ptr<RequestRunner> runner_;

    connector::Mutex mutex_;
    std::condition_variable endedChanged_;
    bool hasEnded_ CONNECTOR_GUARDED_BY(mutex_) = false;

    std::thread thread_;
};

}  // namespace standalone
