#pragma once

#define PY_SSIZE_T_CLEAN
#include <algorithm>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <Python.h>
#include <benchmark/benchmark.h>
#include <unistd.h>

#include "connector/interpreter/Module.h"
#include "standalone/StandaloneHost.h"

namespace bench {

/// The interpreter with the module's services, as a client reaches them. A process can have one.
class RunningService {
public:
    RunningService() {
        standalone::blockInterpreterSignals();
        host = std::make_unique<standalone::StandaloneHost>();
        module = std::make_unique<connector::interpreter::Module>(connector::interpreter::ModuleServices{
            host->framework(), host->configuration(), std::make_shared<connector::json::JsonSerializer>(),
            host->zvm()});
    }

    /// Blocks: until the response is there.
    std::unique_ptr<connector::Message> send(std::unique_ptr<connector::Message> request) const {
        return host->framework()->deliver({}, std::move(request), nullptr).get();
    }

    std::unique_ptr<standalone::StandaloneHost> host;
    std::unique_ptr<connector::interpreter::Module> module;
};

/// A thread that does one thing with the interpreter's lock each time it is asked to, and releases the lock
/// while it waits: the floor of everything that runs in the interpreter for another thread.
class BareThread {
public:
    explicit BareThread(std::function<void()> action)
        : action_(std::move(action)), thread_([this] { run(); }) {}
    ~BareThread() {
        ask(State::Ended);
        thread_.join();
    }
    BareThread(const BareThread&) = delete;
    BareThread& operator=(const BareThread&) = delete;

    void roundTrip() {
        ask(State::Asked);
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return state_ == State::Idle; });
    }

private:
    enum class State { Idle, Asked, Ended };

    void ask(State state) {
        {
            const std::lock_guard lock(mutex_);
            state_ = state;
        }
        changed_.notify_all();
    }
    void run() {
        const PyGILState_STATE outer = PyGILState_Ensure();
        while (isAsked()) {
            action_();
            ask(State::Idle);
        }
        PyGILState_Release(outer);
    }
    bool isAsked() {
        PyThreadState* released = PyEval_SaveThread();
        State state = State::Idle;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return state_ != State::Idle; });
            state = state_;
        }
        PyEval_RestoreThread(released);
        return state == State::Asked;
    }

    const std::function<void()> action_;
    std::mutex mutex_;
    std::condition_variable changed_;
    State state_ = State::Idle;
    std::thread thread_;
};

/// For two things that are compared: the fastest of several runs is the one least disturbed.
inline void compared(benchmark::internal::Benchmark* bench) {
    bench->UseRealTime()
        ->Repetitions(10)
        ->ComputeStatistics(
            "min",
            [](const std::vector<double>& times) { return *std::min_element(times.begin(), times.end()); })
        ->ReportAggregatesOnly();
}

/// Runs the benchmarks with `service` in place. The report goes to the program's own output, not to the
/// interpreter's.
inline int runBenchmarks(int argc, char** argv, std::unique_ptr<RunningService>& service) {
    benchmark::Initialize(&argc, argv);
    service = std::make_unique<RunningService>();
    dup2(service->host->standardOutput(), 1);
    dup2(service->host->standardError(), 2);
    benchmark::RunSpecifiedBenchmarks();
    service.reset();
    return 0;
}

}  // namespace bench
