#define PY_SSIZE_T_CLEAN
#include "interpreter/JsonWriter.h"

#include <algorithm>
#include <complex>
#include <new>
#include <string_view>

#include "connector/json/escape.h"
#include "interpreter/jsonNumber.h"

namespace standalone {

namespace {

using connector::common::DataBuffer;

// Interrupts and requests that run between two steps get their turn this often.
constexpr Py_ssize_t elementsPerTurn = 50'000;

// Makes room for one element of an array and the brackets around it.
constexpr std::size_t elementRoom = 2 * longestNumber + 16;

char* put(std::string_view text, char* to) { return std::copy(text.begin(), text.end(), to); }

char* putElement(bool value, char* to) { return put(value ? "true" : "false", to); }
char* putElement(std::int64_t value, char* to) { return writeNumber(value, to); }
char* putElement(std::uint64_t value, char* to) { return writeNumber(value, to); }
char* putElement(double value, char* to) { return writeNumber(value, to); }
char* putElement(std::complex<double> value, char* to) {
    to = writeNumber(value.real(), put("{\"re\":", to));
    to = writeNumber(value.imag(), put(",\"im\":", to));
    return put("}", to);
}

template <class T>
void append(DataBuffer& out, T value) {
    char* const start = out.room(elementRoom);
    out.advance(static_cast<std::size_t>(putElement(value, start) - start));
}

// Writes the elements of one array, whose memory holds them in row order.
template <class T>
class ArrayElements {
public:
    ArrayElements(const Py_buffer& view, DataBuffer& out)
        : view_(view), next_(static_cast<const T*>(view.buf)), out_(out) {}

    /// Returns false when the handler of a signal raised.
    bool write() {
        if (view_.ndim > 0) return writeDimension(0);
        append(out_, *next_);
        return true;
    }

private:
    bool writeDimension(int dimension) {
        const Py_ssize_t count = view_.shape[dimension];
        const bool isInnermost = dimension == view_.ndim - 1;
        out_.push_back('[');
        for (Py_ssize_t i = 0; i < count; ++i) {
            if (i > 0) out_.push_back(',');
            if (isInnermost) {
                append(out_, *next_++);
                if (--untilTurn_ == 0 && !takeTurn()) return false;
            } else if (!writeDimension(dimension + 1)) {
                return false;
            }
        }
        out_.push_back(']');
        return true;
    }
    bool takeTurn() {
        untilTurn_ = elementsPerTurn;
        return PyErr_CheckSignals() == 0;
    }

    const Py_buffer& view_;
    const T* next_;
    DataBuffer& out_;
    Py_ssize_t untilTurn_ = elementsPerTurn;
};

template <class T>
bool writeElements(const Py_buffer& view, DataBuffer& out) {
    return ArrayElements<T>(view, out).write();
}

class RecursionScope {
public:
    RecursionScope() : isEntered_(Py_EnterRecursiveCall(" while a result is written as JSON") == 0) {}
    ~RecursionScope() {
        if (isEntered_) Py_LeaveRecursiveCall();
    }
    RecursionScope(const RecursionScope&) = delete;
    RecursionScope& operator=(const RecursionScope&) = delete;
    explicit operator bool() const { return isEntered_; }

private:
    const bool isEntered_;
};

bool writeInteger(PyObject* value, DataBuffer& out) {
    int overflow = 0;
    const long long small = PyLong_AsLongLongAndOverflow(value, &overflow);
    if (overflow == 0) {
        if (small == -1 && PyErr_Occurred() != nullptr) return false;
        append(out, std::int64_t{small});
        return true;
    }
    // Not str(): classes derived from int have texts of their own.
    const PyRef text(PyLong_Type.tp_repr(value));
    if (!text) return false;
    out.append(std::string_view(PyUnicode_AsUTF8(text.get())));
    return true;
}

bool writeText(PyObject* text, DataBuffer& out) {
    Py_ssize_t size = 0;
    if (const char* const bytes = PyUnicode_AsUTF8AndSize(text, &size)) {
        out.push_back('"');
        connector::json::appendEscaped(out, {bytes, static_cast<std::size_t>(size)});
        out.push_back('"');
        return true;
    }
    // UTF-8 has no form for unpaired surrogates, but JSON has.
    if (PyErr_ExceptionMatches(PyExc_UnicodeEncodeError) == 0) return false;
    PyErr_Clear();
    const PyRef json(PyImport_ImportModule("json"));
    const PyRef escaped(json ? PyObject_CallMethod(json.get(), "dumps", "O", text) : nullptr);
    if (!escaped) return false;
    out.append(std::string_view(PyUnicode_AsUTF8(escaped.get())));
    return true;
}

bool refuse(const char* what, PyObject* value) {
    PyErr_Format(PyExc_TypeError, "a %s of type %.200s has no JSON form", what, Py_TYPE(value)->tp_name);
    return false;
}

}  // namespace

bool JsonWriter::write(PyObject* value, DataBuffer& out) {
    try {
        return writeValue(value, out);
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
        return false;
    }
}

bool JsonWriter::writeValue(PyObject* value, DataBuffer& out) {
    if (value == Py_None) {
        out.append("null");
    } else if (PyBool_Check(value)) {
        append(out, value == Py_True);
    } else if (PyUnicode_Check(value)) {
        return writeText(value, out);
    } else if (PyLong_Check(value)) {
        return writeInteger(value, out);
    } else if (PyFloat_Check(value)) {
        append(out, PyFloat_AS_DOUBLE(value));
    } else if (PyComplex_Check(value)) {
        append(out, std::complex<double>(PyComplex_RealAsDouble(value), PyComplex_ImagAsDouble(value)));
    } else {
        const RecursionScope scope;
        if (!scope) return false;
        if (PyList_Check(value) || PyTuple_Check(value)) return writeItems(value, out);
        if (PyDict_Check(value)) return writeMembers(value, out);
        return writeFromNumPy(value, out);
    }
    return true;
}

// A signal's handler may change the containers, so sizes are read anew and items are held.
bool JsonWriter::writeItems(PyObject* sequence, DataBuffer& out) {
    out.push_back('[');
    for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(sequence); ++i) {
        if (i > 0) out.push_back(',');
        const PyRef item = PyRef::share(PySequence_Fast_GET_ITEM(sequence, i));
        if (!writeValue(item.get(), out)) return false;
        if (i % elementsPerTurn == elementsPerTurn - 1 && PyErr_CheckSignals() != 0) return false;
    }
    out.push_back(']');
    return true;
}

bool JsonWriter::writeMembers(PyObject* dictionary, DataBuffer& out) {
    const PyRef items(PyDict_Items(dictionary));
    if (!items) return false;
    out.push_back('{');
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(items.get()); ++i) {
        if (i > 0) out.push_back(',');
        PyObject* const item = PyList_GET_ITEM(items.get(), i);
        PyObject* const key = PyTuple_GET_ITEM(item, 0);
        if (!PyUnicode_Check(key)) return refuse("key", key);
        if (!writeText(key, out)) return false;
        out.push_back(':');
        if (!writeValue(PyTuple_GET_ITEM(item, 1), out)) return false;
        if (i % elementsPerTurn == elementsPerTurn - 1 && PyErr_CheckSignals() != 0) return false;
    }
    out.push_back('}');
    return true;
}

bool JsonWriter::isNumPys(PyObject* value, const char* module, const char* name) {
    PyObject* const loaded = PyDict_GetItemString(PyImport_GetModuleDict(), module);  // borrowed
    if (loaded == nullptr) return false;
    const PyRef type(PyObject_GetAttrString(loaded, name));
    const int isInstance = type ? PyObject_IsInstance(value, type.get()) : -1;
    if (isInstance < 0) PyErr_Clear();
    return isInstance > 0;
}

bool JsonWriter::writeFromNumPy(PyObject* value, DataBuffer& out) {
    const bool isArray = isNumPys(value, "numpy", "ndarray");
    if (!isArray && !isNumPys(value, "numpy", "generic")) return refuse("result", value);
    const PyRef type(PyObject_GetAttrString(value, "dtype"));
    const PyRef kindText(type ? PyObject_GetAttrString(type.get(), "kind") : nullptr);
    const char* const kind = kindText ? PyUnicode_AsUTF8(kindText.get()) : nullptr;
    if (kind == nullptr) return false;
    if (std::string_view("biufcU").find(*kind) == std::string_view::npos) {
        PyErr_Format(PyExc_TypeError, "a result of type %.200s of %R has no JSON form",
                     Py_TYPE(value)->tp_name, type.get());
        return false;
    }
    if (*kind != 'U' && !(isArray && isNumPys(value, "numpy.ma", "MaskedArray")))
        return writeArray(value, *kind, out);
    // Texts, and masked elements, which come out as None.
    const PyRef plain(PyObject_CallMethod(value, "tolist", nullptr));
    return plain && writeValue(plain.get(), out);
}

// The widest class of a kind holds every value of the others, so one conversion leaves five cases. NumPy
// copies nothing when the array has that class and lies in row order.
bool JsonWriter::writeArray(PyObject* array, char kind, DataBuffer& out) {
    const char widest[] = {kind == 'b'   ? '?'
                           : kind == 'i' ? 'q'
                           : kind == 'u' ? 'Q'
                           : kind == 'f' ? 'd'
                                         : 'D',
                           '\0'};
    PyObject* const numpy = PyDict_GetItemString(PyImport_GetModuleDict(), "numpy");  // borrowed
    const PyRef rows(PyObject_CallMethod(numpy, "asarray", "Oss", array, widest, "C"));
    Py_buffer view;
    if (!rows || PyObject_GetBuffer(rows.get(), &view, PyBUF_C_CONTIGUOUS) != 0) return false;
    bool isWritten = false;
    try {
        switch (kind) {
            case 'b':
                isWritten = writeElements<bool>(view, out);
                break;
            case 'i':
                isWritten = writeElements<std::int64_t>(view, out);
                break;
            case 'u':
                isWritten = writeElements<std::uint64_t>(view, out);
                break;
            case 'f':
                isWritten = writeElements<double>(view, out);
                break;
            default:
                isWritten = writeElements<std::complex<double>>(view, out);
                break;
        }
    } catch (...) {
        PyBuffer_Release(&view);
        throw;
    }
    PyBuffer_Release(&view);
    return isWritten;
}

}  // namespace standalone
