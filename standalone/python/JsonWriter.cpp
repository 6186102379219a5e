#define PY_SSIZE_T_CLEAN
#include "python/JsonWriter.h"

#include <algorithm>
#include <complex>
#include <cstring>
#include <new>
#include <string_view>

#include "connector/json/escape.h"
#include "python/jsonNumber.h"
#include "python/numpyArrays.h"

namespace standalone {

namespace {

using connector::common::DataBuffer;

// Makes room for one element of an array.
constexpr std::size_t elementRoom = 2 * longestNumber + 16;

char* put(std::string_view text, char* to) { return std::copy(text.begin(), text.end(), to); }

// NumPy's booleans are bytes, of which any but 0 is true.
char* putElement(std::uint8_t value, char* to) { return put(value != 0 ? "true" : "false", to); }
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

bool refuse(PyObject* value) {
    PyErr_Format(PyExc_TypeError, "a value of type %.200s cannot be written as JSON",
                 Py_TYPE(value)->tp_name);
    return false;
}

bool writeInteger(PyObject* value, DataBuffer& out) {
    int overflow = 0;
    const long long small = PyLong_AsLongLongAndOverflow(value, &overflow);
    if (overflow == 0) {
        if (small == -1 && PyErr_Occurred() != nullptr) return false;
        append(out, std::int64_t{small});
        return true;
    }
    // Not str(): classes derived from int may define their own.
    const PyRef text(PyLong_Type.tp_repr(value));
    const char* const digits = text ? PyUnicode_AsUTF8(text.get()) : nullptr;
    if (digits != nullptr) out.append(std::string_view(digits));
    return digits != nullptr;
}

// `utf8` may hold surrogates, for which UTF-8 has no form, but JSON has.
void appendWithSurrogates(DataBuffer& out, std::string_view utf8) {
    constexpr std::string_view hex = "0123456789abcdef";
    const auto byteAt = [utf8](std::size_t i) { return static_cast<unsigned char>(utf8[i]); };
    std::size_t written = 0;
    for (std::size_t i = 0; i + 2 < utf8.size(); ++i) {
        if (byteAt(i) != 0xED || byteAt(i + 1) < 0xA0) continue;
        connector::json::appendEscaped(out, utf8.substr(written, i - written));
        const unsigned unit = 0xD000U | (byteAt(i + 1) & 0x3FU) << 6U | (byteAt(i + 2) & 0x3FU);
        out.append("\\ud");
        for (const unsigned shift : {8U, 4U, 0U}) out.push_back(hex[unit >> shift & 0xFU]);
        written = i + 3;
        i += 2;
    }
    connector::json::appendEscaped(out, utf8.substr(written));
}

}  // namespace

bool JsonWriter::write(PyObject* value) {
    try {
        return writeValue(value);
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
        return false;
    }
}

bool JsonWriter::countSteps(Py_ssize_t steps) {
    untilTurn_ -= steps;
    if (untilTurn_ > 0) return true;
    untilTurn_ = stepsPerTurn;
    if (out_.size() > longest) {
        PyErr_Format(PyExc_ValueError, "the results must not be longer than %zu bytes", longest);
        return false;
    }
    return PyErr_CheckSignals() == 0;
}

bool JsonWriter::writeValue(PyObject* value) {
    if (!countSteps(1)) return false;
    if (value == Py_None) {
        out_.append("null");
    } else if (PyBool_Check(value)) {
        append(out_, static_cast<std::uint8_t>(value == Py_True));
    } else if (PyUnicode_Check(value)) {
        return writeText(value);
    } else if (PyLong_Check(value)) {
        return writeInteger(value, out_);
    } else if (PyFloat_Check(value)) {
        append(out_, PyFloat_AS_DOUBLE(value));
    } else if (PyComplex_Check(value)) {
        append(out_, std::complex<double>(PyComplex_RealAsDouble(value), PyComplex_ImagAsDouble(value)));
    } else {
        if (depth_ == deepest) {
            PyErr_SetString(PyExc_RecursionError, "a result is nested too deeply");
            return false;
        }
        ++depth_;
        const bool isWritten = PyList_Check(value) || PyTuple_Check(value) ? writeItems(value)
                               : PyDict_Check(value)                       ? writeMembers(value)
                                                                           : writeFromNumPy(value);
        --depth_;
        return isWritten;
    }
    return true;
}

bool JsonWriter::writeText(PyObject* text) {
    Py_ssize_t size = 0;
    const char* bytes = PyUnicode_AsUTF8AndSize(text, &size);
    PyRef encoded;
    if (bytes == nullptr) {
        if (PyErr_ExceptionMatches(PyExc_UnicodeEncodeError) == 0) return false;
        PyErr_Clear();
        encoded = PyRef(PyUnicode_AsEncodedString(text, "utf-8", "surrogatepass"));
        if (!encoded) return false;
        bytes = PyBytes_AS_STRING(encoded.get());
        size = PyBytes_GET_SIZE(encoded.get());
    }
    const std::string_view utf8(bytes, static_cast<std::size_t>(size));
    out_.push_back('"');
    if (encoded) {
        appendWithSurrogates(out_, utf8);
    } else {
        connector::json::appendEscaped(out_, utf8);
    }
    out_.push_back('"');
    return countSteps(size / 16);
}

// A signal's handler may change the containers, so sizes are read anew and items are held.
bool JsonWriter::writeItems(PyObject* sequence) {
    out_.push_back('[');
    for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(sequence); ++i) {
        if (i > 0) out_.push_back(',');
        const PyRef item = PyRef::share(PySequence_Fast_GET_ITEM(sequence, i));
        if (!writeValue(item.get())) return false;
    }
    out_.push_back(']');
    return true;
}

bool JsonWriter::writeMembers(PyObject* dictionary) {
    const PyRef items(PyDict_Items(dictionary));
    if (!items) return false;
    out_.push_back('{');
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(items.get()); ++i) {
        if (i > 0) out_.push_back(',');
        PyObject* const item = PyList_GET_ITEM(items.get(), i);
        PyObject* const key = PyTuple_GET_ITEM(item, 0);
        if (!PyUnicode_Check(key)) {
            PyErr_Format(PyExc_TypeError, "the keys of a dictionary must be strings, not %.200s",
                         Py_TYPE(key)->tp_name);
            return false;
        }
        if (!writeText(key)) return false;
        out_.push_back(':');
        if (!writeValue(PyTuple_GET_ITEM(item, 1))) return false;
    }
    out_.push_back('}');
    return true;
}

bool JsonWriter::writeFromNumPy(PyObject* value) {
    const bool isArray = isOfNumPyClass(value, "numpy", "ndarray");
    if (!isArray && !isOfNumPyClass(value, "numpy", "generic")) return refuse(value);
    const PyRef type(PyObject_GetAttrString(value, "dtype"));
    const PyRef kindText(type ? PyObject_GetAttrString(type.get(), "kind") : nullptr);
    if (!kindText) return false;
    const char* const kind = PyUnicode_Check(kindText.get()) ? PyUnicode_AsUTF8(kindText.get()) : "";
    if (kind == nullptr) return false;
    if (*kind == '\0' || std::string_view("biufcU").find(*kind) == std::string_view::npos) {
        PyErr_Format(PyExc_TypeError, "a value of type %.200s of %R cannot be written as JSON",
                     Py_TYPE(value)->tp_name, type.get());
        return false;
    }
    if (*kind != 'U' && !(isArray && isOfNumPyClass(value, "numpy.ma", "MaskedArray")))
        return writeArray(value, *kind);
    // Strings, and masked elements, which come out as None.
    const PyRef plain(PyObject_CallMethod(value, "tolist", nullptr));
    return plain && writeValue(plain.get());
}

// The widest class of a kind holds every value of the others, so one conversion leaves five cases. Others may
// free the memory of an array when they get their turn, so only a copy is written across turns.
bool JsonWriter::writeArray(PyObject* array, char kind) {
    const char widest[] = {kind == 'b'   ? '?'
                           : kind == 'i' ? 'q'
                           : kind == 'u' ? 'Q'
                           : kind == 'f' ? 'd'
                                         : 'D',
                           '\0'};
    const PyRef size(PyObject_GetAttrString(array, "size"));
    const bool isLarge =
        size && (PyLong_Check(size.get()) == 0 || PyLong_AsSsize_t(size.get()) > stepsPerTurn);
    const PyRef rows = size ? inRowOrder(array, widest, isLarge) : PyRef();
    if (!rows) return false;
    const BufferView view(rows.get());
    if (!view) return false;
    switch (kind) {
        case 'b':
            return writeElements<std::uint8_t>(*view);
        case 'i':
            return writeElements<std::int64_t>(*view);
        case 'u':
            return writeElements<std::uint64_t>(*view);
        case 'f':
            return writeElements<double>(*view);
        default:
            return writeElements<std::complex<double>>(*view);
    }
}

template <class T>
bool JsonWriter::writeElements(const Py_buffer& view) {
    if (view.itemsize != sizeof(T)) {
        PyErr_SetString(PyExc_TypeError, "NumPy returned an array of another type than requested");
        return false;
    }
    const char* next = static_cast<const char*>(view.buf);
    return writeDimension<T>(view, 0, next);
}

// No turn is given within an array that fits into one: it is not a copy.
template <class T>
bool JsonWriter::writeDimension(const Py_buffer& view, int dimension, const char*& next) {
    const auto appendNext = [&] {
        T element;
        std::memcpy(&element, next, sizeof element);  // it need not be aligned
        next += sizeof element;
        append(out_, element);
    };
    if (view.ndim == 0) {
        appendNext();
        return true;
    }
    const bool isCopy = view.len / view.itemsize > stepsPerTurn;
    const bool isInnermost = dimension == view.ndim - 1;
    out_.push_back('[');
    for (Py_ssize_t i = 0; i < view.shape[dimension]; ++i) {
        if (i > 0) out_.push_back(',');
        if (isInnermost) {
            appendNext();
        } else if (!writeDimension<T>(view, dimension + 1, next)) {
            return false;
        }
        // An array without elements has no memory that could be freed.
        if ((isCopy || view.len == 0) && !countSteps(1)) return false;
    }
    out_.push_back(']');
    return dimension > 0 || isCopy || countSteps(view.len / view.itemsize);
}

}  // namespace standalone
