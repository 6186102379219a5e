// Round trip of an evaluation of `pass`, from request to response, beside its floor: the same code compiled
// and run, bare, on another thread. Both threads release the interpreter's lock while they wait.

#include "RunningService.h"

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
    const int processor = static_cast<int>(state.range(0));
    const bench::Placement placement(*service, 0, processor);
    bench::BareThread thread(compileAndExec, processor);
    for ([[maybe_unused]] auto _ : state) thread.roundTrip();
}
BENCHMARK(bareCompileAndExec)->Apply(bench::compared);

void evalRoundTrip(benchmark::State& state) {
    const bench::Placement placement(*service, 0, static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) service->evaluate(u"pass");
}
BENCHMARK(evalRoundTrip)->Apply(bench::compared);

}  // namespace

int main(int argc, char** argv) { return bench::runBenchmarks(argc, argv, service); }
