// What the JSON of function calls costs, for a million doubles: arrays to text and back, native code beside
// Python's own json on the same data; the whole call around them; and the object model that a request and a
// response pass on the wire.

#include <sstream>
#include <stdexcept>
#include <string>

#include <Poco/JSON/Parser.h>

#include "RunningService.h"
#include "connector/common/DataBuffer.h"
#include "connector/interpreter/v1/Eval.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/InterpreterJsonSerialization.h"
#include "connector/json/parse.h"
#include "connector/json/write.h"
#include "fl/i18n/text.h"
#include "python/JsonWriter.h"

namespace v1 = connector::interpreter::v1;
using connector::json::JsonSerializer;

namespace {

std::unique_ptr<bench::RunningService> service;

constexpr const char16_t* preparation =
    u"import json, numpy, sys\n"
    u"values = numpy.random.default_rng(1).standard_normal(1_000_000)\n"
    u"text = json.dumps(values.tolist())\n"
    u"def result(): return values\n"
    u"def argument(a: numpy.ndarray): return a.nbytes\n"
    u"def dumps(): return json.dumps(values.tolist(), separators=(',', ':'))\n"
    u"def loads(): return numpy.array(json.loads(text))\n"
    u"def read():\n"
    u"    data, kind, shape = sys.modules['_numora_host'].read_array(text)\n"
    u"    return numpy.frombuffer(data, kind).reshape(shape)\n"
    u"assert (read() == values).all()";

// The interpreter's lock, held by the thread of the benchmark.
class WithInterpreter {
public:
    WithInterpreter() : state_(PyGILState_Ensure()) {}
    ~WithInterpreter() { PyGILState_Release(state_); }
    WithInterpreter(const WithInterpreter&) = delete;
    WithInterpreter& operator=(const WithInterpreter&) = delete;

    static PyObject* variable(const char* name) {  // borrowed
        return PyDict_GetItemString(PyModule_GetDict(PyImport_AddModule("__main__")), name);
    }
    static void call(const char* name) {
        PyObject* const returned = PyObject_CallNoArgs(variable(name));
        if (returned == nullptr) throw std::runtime_error(name);
        Py_DECREF(returned);
    }

private:
    const PyGILState_STATE state_;
};

std::string textOfValues() {
    const WithInterpreter interpreter;
    return PyUnicode_AsUTF8(WithInterpreter::variable("text"));
}

void countBytes(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * static_cast<std::int64_t>(state.iterations()));
}

void arrayToTextNative(benchmark::State& state) {
    const WithInterpreter interpreter;
    std::size_t size = 0;
    for (auto _ : state) {
        connector::common::DataBuffer out;
        if (!standalone::JsonWriter(out).write(WithInterpreter::variable("values")))
            throw std::runtime_error("write");
        size = out.size();
    }
    countBytes(state, size);
}

void python(benchmark::State& state, const char* function) {
    const std::size_t size = textOfValues().size();
    const WithInterpreter interpreter;
    for (auto _ : state) WithInterpreter::call(function);
    countBytes(state, size);
}
void arrayToTextPython(benchmark::State& state) { python(state, "dumps"); }
void textToArrayNative(benchmark::State& state) { python(state, "read"); }
void textToArrayPython(benchmark::State& state) { python(state, "loads"); }

std::u16string call(const std::u16string& function, std::vector<std::u16string> arguments) {
    auto request = std::make_unique<v1::FEval>("bench");
    request->function = function;
    request->arguments = std::move(arguments);
    request->nargout = 1;
    const auto message = service->send(std::move(request));
    auto& response = dynamic_cast<v1::FEvalResponse&>(*message);
    if (!response.faults.empty()) throw std::runtime_error(response.faults.front().message);
    return std::move(response.results);
}

void callWithResult(benchmark::State& state) {
    std::size_t size = 0;
    for (auto _ : state) size = call(u"result", {}).size();
    countBytes(state, size);
}

void callWithArgument(benchmark::State& state) {
    const std::u16string text = fl::i18n::to_ustring(textOfValues());
    for (auto _ : state) benchmark::DoNotOptimize(call(u"argument", {text}));
    countBytes(state, text.size());
}

// The wire: a request's text to its message, and a response to its text.

JsonSerializer& serializer() {
    static const auto instance = [] {
        auto made = std::make_shared<JsonSerializer>();
        const v1::InterpreterJsonSerialization registered(made);
        return made;
    }();
    return *instance;
}

std::string requestText() {
    return R"({"uuid":"bench","function":"argument","nargout":1,"arguments":[)" + textOfValues() + "]}";
}

void pocoParsesRequest(benchmark::State& state) {
    const std::string text = requestText();
    for (auto _ : state) benchmark::DoNotOptimize(Poco::JSON::Parser().parse(text));
    countBytes(state, text.size());
}

void ownParserReadsRequest(benchmark::State& state) {
    const std::string text = requestText();
    for (auto _ : state) benchmark::DoNotOptimize(connector::json::parse(text));
    countBytes(state, text.size());
}

void readerTakesRequest(benchmark::State& state) {
    const auto object = Poco::JSON::Parser().parse(requestText()).extract<Poco::JSON::Object::Ptr>();
    for (auto _ : state) benchmark::DoNotOptimize(serializer().read("connector/v1/FEval", object));
    countBytes(state, requestText().size());
}

template <class WriteText>
void responseIsWritten(benchmark::State& state, const WriteText& writeText) {
    v1::FEvalResponse response("bench");
    response.results = fl::i18n::to_ustring("[" + textOfValues() + "]");
    for (auto _ : state) benchmark::DoNotOptimize(writeText(serializer().write(response)));
    countBytes(state, response.results.size());
}
void pocoWritesResponse(benchmark::State& state) {
    responseIsWritten(state, [](const Poco::JSON::Object::Ptr& object) {
        std::ostringstream out;
        object->stringify(out);
        return out.str();
    });
}
void ownWriterWritesResponse(benchmark::State& state) {
    responseIsWritten(state, [](const auto& object) { return connector::json::written(object); });
}

void timed(benchmark::internal::Benchmark* bench) { bench::compared(bench->Unit(benchmark::kMillisecond)); }
BENCHMARK(arrayToTextNative)->Apply(timed);
BENCHMARK(arrayToTextPython)->Apply(timed);
BENCHMARK(textToArrayNative)->Apply(timed);
BENCHMARK(textToArrayPython)->Apply(timed);
BENCHMARK(callWithResult)->Apply(timed);
BENCHMARK(callWithArgument)->Apply(timed);
BENCHMARK(pocoParsesRequest)->Apply(timed);
BENCHMARK(ownParserReadsRequest)->Apply(timed);
BENCHMARK(readerTakesRequest)->Apply(timed);
BENCHMARK(pocoWritesResponse)->Apply(timed);
BENCHMARK(ownWriterWritesResponse)->Apply(timed);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    service = std::make_unique<bench::RunningService>();
    dup2(service->host->standardOutput(), 1);
    dup2(service->host->standardError(), 2);
    auto request = std::make_unique<v1::Eval>("bench");
    request->mcode = preparation;
    const auto prepared = service->send(std::move(request));
    benchmark::RunSpecifiedBenchmarks();
    service.reset();
    return 0;
}
