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
#include <sched.h>
#include <unistd.h>

#include "connector/interpreter/Module.h"
#include "connector/interpreter/v1/Eval.h"
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
    void evaluate(std::u16string code) const {
        auto request = std::make_unique<connector::interpreter::v1::Eval>("bench");
        request->mcode = std::move(code);
        send(std::move(request));
    }

    std::unique_ptr<standalone::StandaloneHost> host;
    std::unique_ptr<connector::interpreter::Module> module;
};

/// Which processor a thread is bound to. A hand-off to another one takes many times as long as on the same
/// one, and threads that are left alone wander: figures can be compared only for one placement.
inline void bindThread(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<std::size_t>(processor), &set);
    sched_setaffinity(0, sizeof set, &set);
}

/// Binds the client, which is the calling thread, and the interpreter's thread while it is in scope.
class Placement {
public:
    Placement(const RunningService& service, int client, int interpreter) : service_(service) {
        sched_getaffinity(0, sizeof previous_, &previous_);
        service_.evaluate(u"import os; anywhere = os.sched_getaffinity(0); os.sched_setaffinity(0, {" +
                          std::u16string(1, static_cast<char16_t>(u'0' + interpreter)) + u"})");
        bindThread(client);
    }
    ~Placement() {
        sched_setaffinity(0, sizeof previous_, &previous_);
        service_.evaluate(u"os.sched_setaffinity(0, anywhere)");
    }
    Placement(const Placement&) = delete;
    Placement& operator=(const Placement&) = delete;

private:
    const RunningService& service_;
    cpu_set_t previous_{};
};

/// A thread that does one thing with the interpreter's lock each time it is asked to, and releases the lock
/// while it waits: the floor of everything that runs in the interpreter for another thread.
class BareThread {
public:
    BareThread(std::function<void()> action, int processor)
        : action_(std::move(action)), thread_([this, processor] {
              bindThread(processor);
              run();
          }) {}
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

/// For two things that are compared, once with both threads on one processor and once on two. The fastest of
/// several runs is the one least disturbed.
inline void compared(benchmark::internal::Benchmark* bench) {
    bench->ArgName("processor")->DenseRange(0, 1)->UseRealTime()->Repetitions(10);
    bench->ComputeStatistics("min", [](const std::vector<double>& times) {
        return *std::min_element(times.begin(), times.end());
    });
    bench->ReportAggregatesOnly();
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
