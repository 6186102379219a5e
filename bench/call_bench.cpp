// What function calls and interrupts cost a client: the round trip of a call beside its floor, the call of
// the same function object, bare, on another thread; calls into the interpreter while it runs code or sleeps;
// and interrupts of such code, up to the reply to its evaluation.

#include <chrono>
#include <cmath>
#include <future>
#include <stdexcept>
#include <string>

#include "RunningService.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "fl/i18n/text.h"
#include "services/window.h"

namespace v1 = connector::interpreter::v1;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

std::unique_ptr<bench::RunningService> service;

constexpr const char16_t* endlessLoop = u"while True: pass";
constexpr const char16_t* longSleep = u"time.sleep(60)";

std::u16string call(const std::u16string& function, const std::string& dequeMode = {}) {
    auto request = std::make_unique<v1::FEval>("bench");
    request->function = function;
    request->nargout = 1;
    request->dequeMode = dequeMode;
    const auto message = service->send(std::move(request));
    auto& response = dynamic_cast<v1::FEvalResponse&>(*message);
    if (!response.faults.empty()) throw std::runtime_error(response.faults.front().message);
    return std::move(response.results);
}

void interrupt() { service->send(std::make_unique<v1::Interrupt>("bench")); }

// --- Round trip ----------------------------------------------------------------------------------

void bareCall(benchmark::State& state) {
    service->evaluate(u"def f(): return 1");
    const int processor = static_cast<int>(state.range(0));
    const bench::Placement placement(*service, 0, processor);
    PyObject* function = nullptr;
    const auto call = [&function] {
        if (function == nullptr) {
            PyObject* globals = PyModule_GetDict(PyImport_AddModule("__main__"));
            function = PyDict_GetItemString(globals, "f");
        }
        PyObject* result = PyObject_CallNoArgs(function);
        Py_XDECREF(result);
    };
    bench::BareThread thread(call, processor);
    for ([[maybe_unused]] auto _ : state) thread.roundTrip();
}
BENCHMARK(bareCall)->Apply(bench::compared);

void callRoundTrip(benchmark::State& state) {
    service->evaluate(u"def f(): return 1");
    const bench::Placement placement(*service, 0, static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) {
        if (call(u"f") != u"[1]") state.SkipWithError("wrong answer");
    }
}
BENCHMARK(callRoundTrip)->Apply(bench::compared);

// --- While code runs -----------------------------------------------------------------------------

class Latencies {
public:
    void add(benchmark::State& state, nanoseconds latency) {
        state.SetIterationTime(std::chrono::duration<double>(latency).count());
        microseconds_.push_back(std::chrono::duration<double, std::micro>(latency).count());
    }
    void report(benchmark::State& state) {
        std::sort(microseconds_.begin(), microseconds_.end());
        state.counters["p50_us"] = percentile(50);
        state.counters["p99_us"] = percentile(99);
    }

private:
    double percentile(double percent) const {
        const double rank = std::ceil(percent / 100 * static_cast<double>(microseconds_.size()));
        return microseconds_.at(static_cast<std::size_t>(rank) - 1);
    }

    std::vector<double> microseconds_;
};

/// Code that runs until it is interrupted, on behalf of a client of its own.
class RunningCode {
public:
    explicit RunningCode(const std::u16string& code)
        : answered_(std::async(std::launch::async, [code] {
              service->evaluate(code);
              return Clock::now();
          })) {
        while (services::prompt::getInputRequester() != nmutil::prompt::NO_PROMPT) std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));  // until it is compiled and well under way
    }
    ~RunningCode() {
        if (answered_.valid()) end();
    }
    RunningCode(const RunningCode&) = delete;
    RunningCode& operator=(const RunningCode&) = delete;

    /// Interrupts it and returns when the client had its reply.
    Clock::time_point end() {
        interrupt();
        return answered_.get();
    }

private:
    std::future<Clock::time_point> answered_;
};

// Clients do not call as soon as they have an answer; then the code would hardly run.
void pauseBetweenCalls() { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }

void callWhileRunning(benchmark::State& state, const char16_t* code) {
    service->evaluate(
        u"import numpy, time\nmatrix = numpy.zeros((1000, 1000))\n"
        u"for i in range(20): globals()[f'x{i}'] = list(range(i))");
    const RunningCode running(code);
    Latencies latencies;
    for ([[maybe_unused]] auto _ : state) {
        pauseBetweenCalls();
        const auto begin = Clock::now();
        benchmark::DoNotOptimize(call(u"numora.workspace", "ppe"));
        latencies.add(state, Clock::now() - begin);
    }
    latencies.report(state);
}

// The function tells when it began, on the clock that is used here, too.
void startWhileRunning(benchmark::State& state, const char16_t* code) {
    service->evaluate(u"import time");
    const RunningCode running(code);
    Latencies latencies;
    for ([[maybe_unused]] auto _ : state) {
        pauseBetweenCalls();
        const auto begin = Clock::now().time_since_epoch();
        const std::string started = fl::i18n::to_string(call(u"time.monotonic_ns", "ppe"));
        latencies.add(state, nanoseconds(std::stoll(started.substr(1))) - begin);
    }
    latencies.report(state);
}

void interruptToReply(benchmark::State& state, const char16_t* code) {
    service->evaluate(u"import time");
    Latencies latencies;
    for ([[maybe_unused]] auto _ : state) {
        RunningCode running(code);
        const auto begin = Clock::now();
        latencies.add(state, running.end() - begin);
    }
    latencies.report(state);
}

void sampled(benchmark::internal::Benchmark* bench) {
    bench->UseManualTime()->Iterations(1000)->Unit(benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(callWhileRunning, loop, endlessLoop)->Apply(sampled);
BENCHMARK_CAPTURE(callWhileRunning, sleep, longSleep)->Apply(sampled);
BENCHMARK_CAPTURE(startWhileRunning, loop, endlessLoop)->Apply(sampled);
BENCHMARK_CAPTURE(startWhileRunning, sleep, longSleep)->Apply(sampled);
BENCHMARK_CAPTURE(interruptToReply, loop, endlessLoop)->Apply(sampled);
BENCHMARK_CAPTURE(interruptToReply, sleep, longSleep)->Apply(sampled);

}  // namespace

int main(int argc, char** argv) { return bench::runBenchmarks(argc, argv, service); }
