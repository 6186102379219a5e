// Round trip of an evaluation of `pass`, from request to response, beside its floor: the same code compiled
// and run, bare, on another thread. Both threads release the interpreter's lock while they wait.

#define PY_SSIZE_T_CLEAN
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <Python.h>
#include <benchmark/benchmark.h>
#include <unistd.h>

#include "connector/interpreter/Module.h"
#include "connector/interpreter/v1/Eval.h"
#include "standalone/StandaloneHost.h"

namespace {

struct Service {
    Service() {
        standalone::blockInterpreterSignals();
        host = std::make_unique<standalone::StandaloneHost>();
        module = std::make_unique<connector::interpreter::Module>(connector::interpreter::ModuleServices{
            host->framework(), host->configuration(), std::make_shared<connector::json::JsonSerializer>(),
            host->zvm()});
    }
    std::unique_ptr<standalone::StandaloneHost> host;
    std::unique_ptr<connector::interpreter::Module> module;
};

std::unique_ptr<Service> service;

// A thread that compiles and runs what it is handed.
class BareThread {
public:
    BareThread() : thread_([this] { run(); }) {}
    ~BareThread() {
        hand(nullptr);
        thread_.join();
    }
    void roundTrip(const char* code) {
        hand(code);
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return isDone_; });
    }

private:
    void hand(const char* code) {
        {
            const std::lock_guard lock(mutex_);
            code_ = code;
            hasCode_ = true;
            isDone_ = false;
        }
        changed_.notify_all();
    }
    void run() {
        const PyGILState_STATE outer = PyGILState_Ensure();
        PyObject* globals = PyModule_GetDict(PyImport_AddModule("__main__"));
        for (;;) {
            const char* code = nullptr;
            PyThreadState* state = PyEval_SaveThread();
            {
                std::unique_lock lock(mutex_);
                changed_.wait(lock, [this] { return hasCode_; });
                hasCode_ = false;
                code = code_;
            }
            PyEval_RestoreThread(state);
            if (code == nullptr) break;
            PyObject* compiled = Py_CompileString(code, "<bench>", Py_file_input);
            PyObject* result = PyEval_EvalCode(compiled, globals, globals);
            Py_XDECREF(compiled);
            Py_XDECREF(result);
            {
                const std::lock_guard lock(mutex_);
                isDone_ = true;
            }
            changed_.notify_all();
        }
        PyGILState_Release(outer);
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    const char* code_ = nullptr;
    bool hasCode_ = false;
    bool isDone_ = false;
    std::thread thread_;
};

void bareCompileAndExec(benchmark::State& state) {
    BareThread thread;
    for (auto _ : state) thread.roundTrip("pass");
}
BENCHMARK(bareCompileAndExec)->UseRealTime();

void evalRoundTrip(benchmark::State& state) {
    for (auto _ : state) {
        auto request = std::make_unique<connector::interpreter::v1::Eval>("bench");
        request->mcode = u"pass";
        auto response = service->host->framework()->deliver({}, std::move(request), nullptr).get();
        benchmark::DoNotOptimize(response);
    }
}
BENCHMARK(evalRoundTrip)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    service = std::make_unique<Service>();
    // The report goes to the program's own output, not to the interpreter's.
    dup2(service->host->standardOutput(), 1);
    dup2(service->host->standardError(), 2);
    benchmark::RunSpecifiedBenchmarks();
    service.reset();
    return 0;
}
