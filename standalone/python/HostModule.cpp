#define PY_SSIZE_T_CLEAN
#include "python/HostModule.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include <Python.h>
#include <cxxabi.h>

#include "capabilities/capabilities.h"
#include "connector/common/productName.h"
#include "fl/i18n/messages.h"
#include "fl/i18n/text.h"
#include "foundation/log/diagnostic_logger.h"
#include "python/ArrayReader.h"
#include "python/ImportGuard.h"
#include "python/InterpreterServices.h"
#include "python/PyRef.h"
#include "python/capability.h"
#include "python/eventMembers.h"
#include "python/printText.h"
#include "python/pythonText.h"

namespace standalone {

namespace {

InterpreterServices* bound = nullptr;  // under the interpreter's lock

// Runs `action`; what it throws becomes a Python exception.
template <class Action>
PyObject* translated(const Action& action) {
    try {
        return action();
    } catch (const std::bad_alloc&) {
        return PyErr_NoMemory();
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_RuntimeError, error.what());
        return nullptr;
    } catch (const abi::__forced_unwind&) {
        throw;  // the thread ends
    } catch (...) {
        PyErr_SetString(PyExc_RuntimeError, "unknown exception");
        return nullptr;
    }
}

PyObject* newNone() { return PyRef::share(Py_None).release(); }

PyObject* writeOut(PyObject*, PyObject* text) { return printText(bound, nmutil::io::STANDARD_OUTPUT, text); }
PyObject* writeErr(PyObject*, PyObject* text) { return printText(bound, nmutil::io::STANDARD_ERROR, text); }

PyObject* flushPrinted(PyObject*, PyObject*) {
    return translated([] { return bound == nullptr || bound->flush() ? newNone() : nullptr; });
}

PyObject* takePrinted(PyObject*, PyObject* function) {
    return translated([function] {
        const auto shared = std::make_shared<const PyRef>(PyRef::share(function));
        const auto take = [shared](nmutil::io::StreamTypeEnum stream, std::u16string_view text) {
            const char* const name = stream == nmutil::io::STANDARD_OUTPUT ? "stdout" : "stderr";
            const PyRef done(PyObject_CallFunction(shared->get(), "sN", name, pythonText(text)));
            return static_cast<bool>(done);
        };
        if (bound != nullptr) bound->takePrinted(std::make_shared<const PrintedTaker>(take));
        return newNone();
    });
}

InterpreterServices& servicesForReading() {
    if (bound == nullptr || !bound->isInterpreterThread()) {
        throw std::runtime_error("Only the interpreter's main thread can read typed input.");
    }
    return *bound;
}

// Whether something has been read; else a Python exception is set.
bool hasRead(ReadResult result) {
    if (result == ReadResult::Stopped) PyErr_SetString(PyExc_SystemExit, "The interpreter is stopping.");
    return result != ReadResult::Stopped && result != ReadResult::Interrupted;
}

PyObject* readLine(PyObject*, PyObject* arguments) {
    int requester = 0, isEchoed = 1;
    PyObject* text = nullptr;
    if (PyArg_ParseTuple(arguments, "ipU", &requester, &isEchoed, &text) == 0) return nullptr;
    return translated([=] {
        const ShownPrompt question{.requester = static_cast<nmutil::prompt::InputRequester>(requester),
                                   .isEchoed = isEchoed != 0,
                                   .text = utf16(text)};
        std::u16string line;
        return hasRead(servicesForReading().readLine(question, line)) ? pythonText(line) : nullptr;
    });
}

PyObject* readKey(PyObject*, PyObject*) {
    return translated([] { return hasRead(servicesForReading().readKey()) ? newNone() : nullptr; });
}

PyObject* elementsOf(const NumberArray& array) {
    return std::visit(
        [](const auto& elements) {
            return PyByteArray_FromStringAndSize(
                reinterpret_cast<const char*>(elements.data()),
                static_cast<Py_ssize_t>(elements.size() * sizeof elements[0]));
        },
        array.elements);
}

PyObject* shapeOf(const NumberArray& array) {
    PyRef shape(PyTuple_New(static_cast<Py_ssize_t>(array.shape.size())));
    for (std::size_t i = 0; shape && i < array.shape.size(); ++i) {
        PyObject* const length = PyLong_FromLongLong(array.shape[i]);
        if (length == nullptr) return nullptr;
        PyTuple_SET_ITEM(shape.get(), static_cast<Py_ssize_t>(i), length);
    }
    return shape.release();
}

PyObject* readArray(PyObject*, PyObject* text) {
    if (PyUnicode_Check(text) == 0) return PyErr_Format(PyExc_TypeError, "the JSON text must be a string");
    if (PyUnicode_READY(text) != 0) return nullptr;
    if (PyUnicode_IS_ASCII(text) == 0) return newNone();
    return translated([text] {
        NumberArray array;
        const auto length = static_cast<std::size_t>(PyUnicode_GET_LENGTH(text));
        const auto* const units = reinterpret_cast<const char*>(PyUnicode_1BYTE_DATA(text));
        if (!readNumberArray({units, length}, array)) return newNone();
        constexpr std::array<const char*, 3> letters = {"d", "q", "?"};
        return Py_BuildValue("(NsN)", elementsOf(array), letters.at(array.elements.index()), shapeOf(array));
    });
}

// A client that does not say what it is belongs to no product.
PyObject* missingCapability(PyObject*, PyObject* arguments) {
    const char *capability = nullptr, *function = nullptr;
    Py_ssize_t capabilityLength = 0, functionLength = 0;
    if (PyArg_ParseTuple(arguments, "s#z#", &capability, &capabilityLength, &function, &functionLength) == 0)
        return nullptr;
    const auto* const options = bound != nullptr ? bound->runningOptions() : nullptr;
    if (options == nullptr || !options->capabilities()) return newNone();
    return translated([&] {
        const std::string wanted(capability, static_cast<std::size_t>(capabilityLength));
        const auto& has = *options->capabilities();
        if (std::find(has.begin(), has.end(), wanted) != has.end()) return newNone();
        const std::string client = options->source() ? fl::i18n::to_string(*options->source()) : "";
        const std::string product = connector::common::getProductNameByClientType(client);
        const auto lack = client.empty() ? capabilities::Lack::General : capabilities::Lack::Product;
        boost::optional<std::string> name;
        if (function != nullptr) name = std::string(function, static_cast<std::size_t>(functionLength));
        const auto identifier = capabilities::missingCapabilityIdentifier(lack, product);
        using fl::i18n::to_ustring;
        const auto message = fl::i18n::MessageCatalog::GetFormattedMessage(
            fl::i18n::MessageID(identifier),
            {to_ustring(wanted), to_ustring(capabilities::missingCapabilityFunction(name)),
             to_ustring(product)});
        return Py_BuildValue("(s#N)", identifier.data(), static_cast<Py_ssize_t>(identifier.size()),
                             pythonText(message));
    });
}

// Whether the event loop of code that awaits takes the interrupt that is raised, because it has hit the
// loop's own code.
bool isTakenByLoop(PyObject* frame) {
    if (PyErr_ExceptionMatches(PyExc_KeyboardInterrupt) == 0) return false;
    PyObject *type = nullptr, *interrupt = nullptr, *trace = nullptr;
    PyErr_Fetch(&type, &interrupt, &trace);
    const PyRef name(PyUnicode_FromString("numora._loop"));
    const PyRef loop(name ? PyImport_GetModule(name.get()) : nullptr);
    const PyRef take(loop ? PyObject_GetAttrString(loop.get(), "take_interrupt") : nullptr);
    PyThreadState* const state = PyThreadState_Get();
    PyThreadState_EnterTracing(state);
    const PyRef taken(take ? PyObject_CallOneArg(take.get(), frame) : nullptr);
    PyThreadState_LeaveTracing(state);
    PyErr_Restore(type, interrupt, trace);  // instead of any other
    if (taken.get() != Py_True) return false;
    PyErr_Clear();
    return true;
}

// The Python-level handler of the signal that makes the interpreter thread look. A system call that it
// interrupts is entered again without another look at the signals.
PyObject* runRequests(PyObject*, PyObject* arguments) {
    static ImportGuard imports;  // under the interpreter's lock
    int signal = 0;
    PyObject* frame = nullptr;
    // CPython may look for signals twice before it lets go of what the first look has raised.
    if (PyErr_Occurred() != nullptr) return nullptr;
    if (PyArg_ParseTuple(arguments, "iO", &signal, &frame) == 0) return nullptr;
    return translated([frame] {
        if (bound != nullptr && imports.mayRunIn(frame)) bound->runRequests();
        const bool goesOn = bound != nullptr ? bound->checkInterrupts() : PyErr_CheckSignals() == 0;
        return goesOn || isTakenByLoop(frame) ? newNone() : nullptr;
    });
}

PyObject* enableInterrupts(PyObject*, PyObject* isEnabled) {
    return PyBool_FromLong(bound == nullptr || !bound->isInterpreterThread() ||
                           bound->setInterruptEnabled(isEnabled == Py_True));
}

// Python drops what is raised in finalizers and the like. An interrupt is still meant for the code around.
// This is no Python code, in which it could be raised again at once, and be dropped with the report.
PyObject* takeUnraisable(PyObject*, PyObject* dropped) {
    const PyRef type(PyObject_GetAttrString(dropped, "exc_type"));
    if (!type) return nullptr;
    if (type.get() == PyExc_KeyboardInterrupt && bound != nullptr && bound->isInterpreterThread()) {
        bound->returnInterrupt();
        return newNone();
    }
    PyObject* const borrowed = PySys_GetObject("__unraisablehook__");
    if (borrowed == nullptr) return newNone();
    const PyRef report = PyRef::share(borrowed);  // the code that it runs may rebind the name
    return PyObject_CallOneArg(report.get(), dropped);
}

// Runs a thread's function, or what is given to one: what it does belongs to the request that started that.
PyObject* runForRequest(PyObject* starterAndFunction, PyObject* arguments, PyObject* keywords) {
    PyObject *starter = nullptr, *function = nullptr;
    if (PyArg_ParseTuple(starterAndFunction, "OO", &starter, &function) == 0) return nullptr;
    if (bound == nullptr) return PyObject_Call(function, arguments, keywords);
    const ThreadStarter before = bound->starterOfNewThread();  // the thread may be one of a pool
    bound->setStarter(*static_cast<const ThreadStarter*>(PyCapsule_GetPointer(starter, nullptr)));
    PyObject* const result = PyObject_Call(function, arguments, keywords);
    if (bound != nullptr) bound->setStarter(before);
    return result;
}

PyMethodDef runForRequestDefinition = {
    "run_for_request", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(runForRequest)),
    METH_VARARGS | METH_KEYWORDS, nullptr};

void freeStarter(PyObject* capsule) {
    delete static_cast<ThreadStarter*>(PyCapsule_GetPointer(capsule, nullptr));
}

PyObject* ofThisRequest(PyObject*, PyObject* function) {
    return translated([function]() -> PyObject* {
        auto starter = std::make_unique<ThreadStarter>();
        if (bound != nullptr) *starter = bound->starterOfNewThread();
        if (starter->number == 0 || PyCallable_Check(function) == 0) return PyRef::share(function).release();
        const PyRef capsule(PyCapsule_New(starter.get(), nullptr, freeStarter));
        if (!capsule) return nullptr;
        starter.release();
        const PyRef both(PyTuple_Pack(2, capsule.get(), function));
        return both ? PyCFunction_New(&runForRequestDefinition, both.get()) : nullptr;
    });
}

PyObject* clearWindow(PyObject*, PyObject*) {
    return translated([] { return bound == nullptr || bound->clearWindow() ? newNone() : nullptr; });
}

PyObject* moveHome(PyObject*, PyObject*) {
    return translated([] { return bound == nullptr || bound->moveHome() ? newNone() : nullptr; });
}

PyObject* hasSubscribers(PyObject*, PyObject* tag) {
    if (PyUnicode_Check(tag) == 0) return PyErr_Format(PyExc_TypeError, "the tag must be a string");
    return translated(
        [tag] { return PyBool_FromLong(bound != nullptr && bound->hasSubscribers(utf16(tag))); });
}

// What one event may carry, of which the clients that come back are to be able to get the last ones.
constexpr std::size_t longestEvent = std::size_t{4} << 20;
constexpr std::size_t longestDisplay = std::size_t{16} << 20;

PyObject* postEvent(PyObject*, PyObject* arguments) {
    PyObject *tag = nullptr, *values = nullptr;
    if (PyArg_ParseTuple(arguments, "UO!", &tag, &PyDict_Type, &values) == 0) return nullptr;
    return translated([tag, values]() -> PyObject* {
        TaggedEvent::Members members;
        EventMembers writer(longestEvent);
        if (!writer.add(values, members)) return nullptr;
        const bool goesOn =
            bound == nullptr || bound->postEvent(utf16(tag), std::move(members), writer.bytes());
        return goesOn ? newNone() : nullptr;
    });
}

PyObject* raiseEvent(PyObject*, PyObject* arguments) {
    PyObject *tag = nullptr, *values = nullptr;
    if (PyArg_ParseTuple(arguments, "UO!", &tag, &PyDict_Type, &values) == 0) return nullptr;
    return translated([tag, values]() -> PyObject* {
        TaggedEvent::Members members;
        const bool isComm = PyUnicode_CompareWithASCIIString(tag, "comm") == 0;
        if (!EventMembers(isComm ? longestDisplay : longestEvent).add(values, members)) return nullptr;
        const bool goesOn = bound == nullptr || bound->raiseEvent(utf16(tag), std::move(members));
        return goesOn ? newNone() : nullptr;
    });
}

// The types of the data stay members of their own, so that some can be left out later.
PyObject* raiseDisplay(PyObject*, PyObject* arguments) {
    PyObject *data = nullptr, *others = nullptr;
    if (PyArg_ParseTuple(arguments, "O!O!", &PyDict_Type, &data, &PyDict_Type, &others) == 0) return nullptr;
    return translated([data, others]() -> PyObject* {
        TaggedEvent::Members members, types;
        EventMembers writer(longestDisplay);
        if (!writer.add(data, types) || !writer.add(others, members)) return nullptr;
        members.emplace("data", std::move(types));
        if (bound != nullptr && bound->hasCapability("notebook")) {
            members.emplace(TaggedEvent::ofNotebook, true);
        }
        const bool goesOn = bound == nullptr || bound->raiseEvent(u"display", std::move(members));
        return goesOn ? newNone() : nullptr;
    });
}

PyObject* cellNumberOfRequest(PyObject*, PyObject*) {
    const auto number = bound != nullptr ? cellNumber(bound->runningOptions()) : std::string_view();
    return PyUnicode_FromStringAndSize(number.data(), static_cast<Py_ssize_t>(number.size()));
}

PyObject* hasClientCapability(PyObject*, PyObject* capability) {
    const char* const wanted = PyUnicode_AsUTF8(capability);
    if (wanted == nullptr) return nullptr;
    return PyBool_FromLong(bound != nullptr && bound->hasCapability(wanted));
}

PyObject* requestName(PyObject*, PyObject*) {
    return translated([] {
        const std::string name = bound != nullptr ? bound->requestName() : std::string();
        return PyUnicode_DecodeUTF8(name.data(), static_cast<Py_ssize_t>(name.size()), "replace");
    });
}

// What Python's interactive mode does with the value of an expression. No Python code of the program's runs
// that a debugger could step into, and none at all where nobody listens.
PyObject* showResult(PyObject*, PyObject* value) {
    if (value == Py_None) return newNone();
    return translated([value]() -> PyObject* {
        if (bound == nullptr || !bound->hasSubscribers(u"display")) {
            const PyRef print = PyRef::share(PySys_GetObject("__displayhook__"));
            return print ? PyObject_CallOneArg(print.get(), value) : newNone();
        }
        PyThreadState* const state = PyThreadState_Get();
        PyThreadState_EnterTracing(state);
        const PyRef display(PyImport_ImportModule("numora._display"));
        const PyRef show(display ? PyObject_GetAttrString(display.get(), "show_result") : nullptr);
        PyObject* const shown = show ? PyObject_CallOneArg(show.get(), value) : nullptr;
        PyThreadState_LeaveTracing(state);
        return shown;
    });
}

// The prompt, the question that is open there, the evaluation that runs, and for how many seconds.
PyObject* tellState(PyObject*, PyObject*) {
    return translated([]() -> PyObject* {
        const InterpreterState state = bound != nullptr ? bound->state() : InterpreterState();
        const auto& [requester, number, isEchoed, text] = state.prompt;
        const PyRef question(pythonText(text));
        const PyRef seconds(!state.since
                                ? newNone()
                                : PyFloat_FromDouble(std::chrono::duration<double>(
                                                         std::chrono::steady_clock::now() - *state.since)
                                                         .count()));
        if (!question || !seconds) return nullptr;
        const std::string prompt(nmutil::prompt::promptName(requester));
        return Py_BuildValue("(sKOOKO)", prompt.c_str(), static_cast<unsigned long long>(number),
                             question.get(), isEchoed ? Py_False : Py_True,
                             static_cast<unsigned long long>(state.evaluation), seconds.get());
    });
}

PyObject* leaveWindow(PyObject*, PyObject*) {
    bound = nullptr;
    return newNone();
}

PyObject* warn(PyObject*, PyObject* text) {
    return translated([text]() -> PyObject* {
        const char* const message = PyUnicode_AsUTF8(text);
        if (message == nullptr) return nullptr;
        foundation::log::DiagnosticLogger("standalone::python").warning(message);
        return newNone();
    });
}

PyObject* configure(PyObject*, PyObject* arguments) {
    const char *key = nullptr, *value = nullptr;
    if (PyArg_ParseTuple(arguments, "ss", &key, &value) == 0) return nullptr;
    return translated([=]() -> PyObject* {
        try {
            if (bound != nullptr) bound->configure(key, value);
        } catch (const std::invalid_argument& problem) {
            PyErr_SetString(PyExc_ValueError, problem.what());
            return nullptr;
        }
        return newNone();
    });
}

std::array functions = {
    PyMethodDef{"write_out", writeOut, METH_O, "Prints text on standard output."},
    PyMethodDef{"write_err", writeErr, METH_O, "Prints text on standard error."},
    PyMethodDef{"flush", flushPrinted, METH_NOARGS,
                "Has what was printed reach a notebook at once, unless it did just now."},
    PyMethodDef{"take_printed", takePrinted, METH_O,
                "Gives what the running request prints to a function, by the name of the stream."},
    PyMethodDef{"read_line", readLine, METH_VARARGS,
                "Reads one typed line at a prompt, shown or not, for a question with a text."},
    PyMethodDef{"read_key", readKey, METH_NOARGS, "Waits for one typed character."},
    PyMethodDef{"missing_capability", missingCapability, METH_VARARGS,
                "What to say of a capability that the client of the running request lacks: the identifier "
                "and the message of the error. None when it has it, or has not said what it has."},
    PyMethodDef{"read_array", readArray, METH_O,
                "The array that a JSON text holds: its elements, NumPy's letter for them, its shape. None "
                "for any other text."},
    PyMethodDef{"run_requests", runRequests, METH_VARARGS,
                "Runs the requests that may run between two steps of code, and tells it of interrupts."},
    PyMethodDef{"enable_interrupts", enableInterrupts, METH_O,
                "Lets interrupts be taken, or makes them wait. Returns the previous setting."},
    PyMethodDef{"unraisable", takeUnraisable, METH_O, "Reports an exception that Python drops."},
    PyMethodDef{
        "of_this_request", ofThisRequest, METH_O,
        "The function of a thread that is about to be started, for the request whose code starts it."},
    PyMethodDef{"clc", clearWindow, METH_NOARGS, "Clears the command window."},
    PyMethodDef{"home", moveHome, METH_NOARGS, "Moves the cursor of the command window home."},
    PyMethodDef{"hears", hasSubscribers, METH_O, "Tells whether a client listens to events with a tag."},
    PyMethodDef{"post_event", postEvent, METH_VARARGS,
                "Raises an event with a tag and the values of its members."},
    PyMethodDef{"raise_event", raiseEvent, METH_VARARGS,
                "Raises an event in its place among text and prompts, and waits until it is dealt with."},
    PyMethodDef{"raise_display", raiseDisplay, METH_VARARGS,
                "The same for the event of a display, with its data by type, and its other members."},
    PyMethodDef{"show_result", showResult, METH_O,
                "Shows the value of an expression: as text, and to clients that listen to displays."},
    PyMethodDef{"cell_number", cellNumberOfRequest, METH_NOARGS,
                "The number of the cell that runs, as its notebook shows it, or an empty text."},
    PyMethodDef{"has_capability", hasClientCapability, METH_O,
                "Tells whether the client of the running request, or of the one that started the thread, has "
                "said that it has a capability."},
    PyMethodDef{"request_name", requestName, METH_NOARGS,
                "The name of the running request, or an empty string."},
    PyMethodDef{"state", tellState, METH_NOARGS,
                "What runs: the prompt, the number and text of the open question and whether it asks for a "
                "password, the number of the evaluation, and its seconds."},
    PyMethodDef{"leave_window", leaveWindow, METH_NOARGS,
                "Has text go to the file descriptors, for a forked child."},
    PyMethodDef{"configure", configure, METH_VARARGS, "Changes a value of the host's configuration."},
    PyMethodDef{"warn", warn, METH_O, "Writes a warning into the log."},
    PyMethodDef{nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {.m_base = PyModuleDef_HEAD_INIT,
                          .m_name = "_numora_host",
                          .m_doc = nullptr,
                          .m_size = -1,
                          .m_methods = functions.data(),
                          .m_slots = nullptr,
                          .m_traverse = nullptr,
                          .m_clear = nullptr,
                          .m_free = nullptr};

PyObject* makeModule() { return PyModule_Create(&definition); }

}  // namespace

void hostmodule::registerModule() { PyImport_AppendInittab("_numora_host", makeModule); }
void hostmodule::bind(InterpreterServices* services) { bound = services; }

}  // namespace standalone
