// Round trip of an evaluation of `pass`, from request to response, beside its floor: the same code compiled
// and run, bare, on another thread. Both threads release the interpreter's lock while they wait.

#include "RunningService.h"
#include "connector/interpreter/v1/Eval.h"

namespace {

std::unique_ptr<bench::RunningService> service;

void compileAndExec() {
    PyObject* globals = PyModule_GetDict(PyImport_AddModule("__main__"));
    PyObject* compiled = Py_CompileString("pass", "<bench>", Py_file_input);
    PyObject* result = PyEval_EvalCode(compiled, globals, globals);
    Py_XDECREF(compiled);
    Py_XDECREF(result);
}

void bareCompileAndExec(benchmark::State& state) {
    bench::BareThread thread(compileAndExec);
    for (auto _ : state) thread.roundTrip();
}
BENCHMARK(bareCompileAndExec)->Apply(bench::compared);

void evalRoundTrip(benchmark::State& state) {
    for (auto _ : state) {
        auto request = std::make_unique<connector::interpreter::v1::Eval>("bench");
        request->mcode = u"pass";
        auto response = service->send(std::move(request));
        benchmark::DoNotOptimize(response);
    }
}
BENCHMARK(evalRoundTrip)->Apply(bench::compared);

}  // namespace

int main(int argc, char** argv) { return bench::runBenchmarks(argc, argv, service); }
