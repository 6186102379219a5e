#include "python/HostModule.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <unistd.h>

#include "capabilities/missingCapability.h"
#include "connector/common/productName.h"
#include "fl/i18n/messages.h"
#include "fl/i18n/text.h"
#include "foundation/log/diagnostic_logger.h"
#include "python/ArrayReader.h"
#include "python/ImportGuard.h"
#include "python/InterpreterServices.h"
#include "python/JsonWriter.h"
#include "python/pythonText.h"
#include "thread/Interrupts.h"

namespace py = pybind11;

namespace standalone {

namespace {

InterpreterServices* bound = nullptr;  // under the interpreter's lock

template <class Unit>
void printUnits(nmutil::io::StreamTypeEnum stream, const Unit* units, Py_ssize_t count) {
    std::array<char16_t, 8192>
        piece;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled before it is read
    if constexpr (sizeof(Unit) < 4) {  // in UTF-16 they are the same
        while (count > 0) {
            const auto size = std::min<std::size_t>(static_cast<std::size_t>(count), piece.size());
            std::copy_n(units, size, piece.data());
            bound->print(stream, {piece.data(), size});
            units += size;
            count -= static_cast<Py_ssize_t>(size);
        }
    } else {
        std::size_t used = 0;
        for (Py_ssize_t i = 0; i < count; ++i) {
            if (used + 2 > piece.size()) {
                bound->print(stream, {piece.data(), used});
                used = 0;
            }
            std::uint32_t point = units[i];
            if (point > 0xFFFF) {
                point -= 0x10000;
                piece.at(used++) = static_cast<char16_t>(0xD800 + (point >> 10U));
                point = 0xDC00 + (point & 0x3FFU);
            }
            piece[used++] = static_cast<char16_t>(point);
        }
        if (used > 0) bound->print(stream, {piece.data(), used});
    }
}

// Without a window, as in a forked child and at the end, text goes to the descriptor itself.
bool writeDirectly(nmutil::io::StreamTypeEnum stream, PyObject* text) {
    PyObject* bytes = PyUnicode_AsEncodedString(text, "utf-8", "replace");
    if (bytes == nullptr) return false;
    const int descriptor = stream == nmutil::io::STANDARD_OUTPUT ? STDOUT_FILENO : STDERR_FILENO;
    const char* data = PyBytes_AS_STRING(bytes);
    Py_ssize_t rest = PyBytes_GET_SIZE(bytes);
    while (rest > 0) {
        const ssize_t count = ::write(descriptor, data, static_cast<std::size_t>(rest));
        if (count < 0 && errno != EINTR) break;
        if (count > 0) {
            data += count;
            rest -= count;
        }
    }
    Py_DECREF(bytes);
    return true;
}

// CPython keeps text as Latin-1, UCS-2 or UCS-4 units; each goes to UTF-16 in one step.
PyObject* write(nmutil::io::StreamTypeEnum stream, PyObject* text) {
    if (PyUnicode_Check(text) == 0) {
        return PyErr_Format(PyExc_TypeError, "write() argument must be str, not %.200s",
                            Py_TYPE(text)->tp_name);
    }
    if (PyUnicode_READY(text) != 0) return nullptr;
    const Py_ssize_t length = PyUnicode_GET_LENGTH(text);
    if (bound == nullptr && !writeDirectly(stream, text)) return nullptr;
    if (bound != nullptr && length > 0) {
        try {
            bound->beforePrint();
            switch (PyUnicode_KIND(text)) {
                case PyUnicode_1BYTE_KIND:
                    printUnits(stream, PyUnicode_1BYTE_DATA(text), length);
                    break;
                case PyUnicode_2BYTE_KIND:
                    printUnits(stream, PyUnicode_2BYTE_DATA(text), length);
                    break;
                default:
                    printUnits(stream, PyUnicode_4BYTE_DATA(text), length);
                    break;
            }
        } catch (const std::exception& error) {
            PyErr_SetString(PyExc_OSError, error.what());
            return nullptr;
        }
    }
    return PyLong_FromSsize_t(length);
}

PyObject* writeOut(PyObject*, PyObject* text) { return write(nmutil::io::STANDARD_OUTPUT, text); }
PyObject* writeErr(PyObject*, PyObject* text) { return write(nmutil::io::STANDARD_ERROR, text); }

// Plain functions, because print() calls them for every piece.
PyMethodDef writeOutDefinition = {"write_out", writeOut, METH_O, "Prints text on standard output."};
PyMethodDef writeErrDefinition = {"write_err", writeErr, METH_O, "Prints text on standard error."};

InterpreterServices& servicesForReading() {
    if (bound == nullptr || !bound->isInterpreterThread()) {
        throw std::runtime_error("Only the interpreter's main thread can read typed input.");
    }
    return *bound;
}

void raiseUnlessRead(ReadResult result) {
    if (result == ReadResult::Interrupted) throw py::error_already_set();
    if (result == ReadResult::Stopped) {
        PyErr_SetString(PyExc_SystemExit, "The interpreter is stopping.");
        throw py::error_already_set();
    }
}

py::object readLine(int prompt) {
    std::u16string line;
    raiseUnlessRead(servicesForReading().readLine(static_cast<nmutil::prompt::InputRequester>(prompt), line));
    return py::reinterpret_steal<py::object>(pythonText(line));
}

void readKey() { raiseUnlessRead(servicesForReading().readKey()); }

// The array that a JSON text holds, as (bytearray of the elements, NumPy's letter for them, shape), or None.
py::object readArray(const py::str& text) {
    if (PyUnicode_IS_ASCII(text.ptr()) == 0) return py::none();
    NumberArray array;
    const auto length = static_cast<std::size_t>(PyUnicode_GET_LENGTH(text.ptr()));
    const auto* const units = reinterpret_cast<const char*>(PyUnicode_1BYTE_DATA(text.ptr()));
    if (!readNumberArray({units, length}, array)) return py::none();
    constexpr std::array<const char*, 3> letters = {"d", "q", "?"};
    const auto bytes = std::visit(
        [](const auto& elements) {
            return py::bytearray(reinterpret_cast<const char*>(elements.data()),
                                 elements.size() * sizeof elements[0]);
        },
        array.elements);
    return py::make_tuple(bytes, letters.at(array.elements.index()), py::tuple(py::cast(array.shape)));
}

// What is to be said of a capability that the client of the running request lacks: the identifier and the
// message of the error. None when it has it, or has not said what it has. A client that does not say what it
// is belongs to no product.
py::object missingCapability(const std::string& capability, const std::optional<std::string>& function) {
    const auto* const options = bound != nullptr ? bound->runningOptions() : nullptr;
    if (options == nullptr || !options->capabilities()) return py::none();
    const auto& has = *options->capabilities();
    if (std::find(has.begin(), has.end(), capability) != has.end()) return py::none();
    const std::string client = options->source() ? fl::i18n::to_string(*options->source()) : "";
    const std::string product = connector::common::getProductNameByClientType(client);
    const auto lack = client.empty() ? capabilities::Lack::General : capabilities::Lack::Product;
    const auto name = function ? boost::make_optional(*function) : boost::none;
    const auto identifier = capabilities::missingCapabilityIdentifier(lack, product);
    using fl::i18n::to_ustring;
    return py::make_tuple(
        identifier, fl::i18n::MessageCatalog::GetFormattedMessage(
                        fl::i18n::MessageID(identifier),
                        {to_ustring(capability), to_ustring(capabilities::missingCapabilityFunction(name)),
                         to_ustring(product)}));
}

// Python drops what is raised in finalizers and the like. An interrupt is still meant for the code around.
// This is no Python code, in which it could be raised again at once, and be dropped with the report.
void takeUnraisable(const py::object& dropped) {
    const bool isInterrupt = py::object(dropped.attr("exc_type")).ptr() == PyExc_KeyboardInterrupt;
    if (isInterrupt && bound != nullptr && bound->isInterpreterThread()) return bound->returnInterrupt();
    py::module_::import("sys").attr("__unraisablehook__")(dropped);
}

// What one event may carry, of which the clients that come back are to be able to get the last ones.
constexpr std::size_t longestEvent = std::size_t{4} << 20;

void postEvent(const std::u16string& tag, const py::dict& values) {
    TaggedEvent::Members members;
    std::size_t bytes = 0;
    for (const auto& [name, value] : values) {
        connector::common::DataBuffer json;
        if (!JsonWriter(json).write(value.ptr())) throw py::error_already_set();
        bytes += json.size();
        if (bytes > longestEvent) throw py::value_error("an event may carry 4 MiB of JSON at the most");
        members.emplace(py::cast<std::string>(name),
                        foundation::json::Value(foundation::json::Value::Json{std::string(json.view())}));
    }
    if (bound != nullptr) bound->postEvent(tag, std::move(members), bytes);
}

void defineFunctions(py::module_& module) {
    module.add_object("write_out",
                      py::reinterpret_steal<py::object>(PyCFunction_New(&writeOutDefinition, nullptr)));
    module.add_object("write_err",
                      py::reinterpret_steal<py::object>(PyCFunction_New(&writeErrDefinition, nullptr)));
    module.def("read_line", &readLine, "Reads one typed line at a prompt.");
    module.def("read_key", &readKey, "Waits for one typed character.");
    module.def("missing_capability", &missingCapability,
               "What to say of a capability that the client lacks.");
    module.def("read_array", &readArray, "Reads a JSON text that holds an array of numbers.");
    module.def("run_requests", [imports = ImportGuard()](int, const py::object& frame) mutable {
        if (bound != nullptr && imports.mayRunIn(frame.ptr())) bound->runRequests();
        const bool isInterrupted = bound != nullptr && bound->takeInterrupt();
        // A system call that this handler interrupted is entered again without another look at the signals.
        if (!(isInterrupted ? Interrupts::deliver() : Interrupts::check())) throw py::error_already_set();
    });
    module.def("unraisable", &takeUnraisable, "Reports an exception that Python drops.");
    module.def("clc", [] {
        if (bound != nullptr) bound->clearWindow();
    });
    module.def("home", [] {
        if (bound != nullptr) bound->moveHome();
    });
    module.def(
        "hears", [](const std::u16string& tag) { return bound != nullptr && bound->isHeard(tag); },
        "Tells whether a client listens to events with a tag.");
    module.def("post_event", &postEvent, "Raises an event with a tag and the values of its members.");
    module.def("leave_window", [] { bound = nullptr; });
    module.def("warn", [](const std::string& text) {
        foundation::log::DiagnosticLogger("standalone::python").warning(text);
    });
}

}  // namespace

}  // namespace standalone

// The macro defines functions of the global namespace.
PYBIND11_MODULE(_numora_host, module) { standalone::defineFunctions(module); }

namespace standalone {

void hostmodule::registerModule() { PyImport_AppendInittab("_numora_host", &PyInit__numora_host); }
void hostmodule::bind(InterpreterServices* services) { bound = services; }

}  // namespace standalone
