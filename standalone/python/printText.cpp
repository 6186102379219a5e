#define PY_SSIZE_T_CLEAN
#include "python/printText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <exception>

#include <Python.h>
#include <unistd.h>

#include "python/InterpreterServices.h"
#include "python/PyRef.h"

namespace standalone {

namespace {

class Printer {
public:
    Printer(InterpreterServices* const& services, nmutil::io::StreamTypeEnum stream)
        : services_(services), stream_(stream) {}

    // CPython keeps text as Latin-1, UCS-2 or UCS-4 units; each goes to UTF-16 in one step.
    // False when an interrupt has ended it.
    template <class Unit>
    bool print(const Unit* units, Py_ssize_t count) {
        if constexpr (sizeof(Unit) < 4) {  // in UTF-16 they are the same
            while (count > 0 && goesOn_) {
                used_ = std::min<std::size_t>(static_cast<std::size_t>(count), piece_.size());
                std::copy_n(units, used_, piece_.data());
                units += used_;
                count -= static_cast<Py_ssize_t>(used_);
                flush();
            }
        } else {
            for (Py_ssize_t i = 0; i < count && goesOn_; ++i) {
                if (used_ + 2 > piece_.size()) flush();
                add(units[i]);
            }
            flush();
        }
        return goesOn_;
    }

private:
    void add(std::uint32_t point) {
        if (point > 0xFFFF) {
            point -= 0x10000;
            piece_[used_++] = static_cast<char16_t>(0xD800 + (point >> 10U));
            point = 0xDC00 + (point & 0x3FFU);
        }
        piece_[used_++] = static_cast<char16_t>(point);
    }
    void flush() {
        if (services_ != nullptr && used_ > 0 && goesOn_) {
            goesOn_ = services_->print(stream_, {piece_.data(), used_});
        }
        used_ = 0;
    }

    InterpreterServices* const& services_;
    const nmutil::io::StreamTypeEnum stream_;
    bool goesOn_ = true;
    std::size_t used_ = 0;
    std::array<char16_t, 8192> piece_;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled before read
};

bool printThrough(InterpreterServices* const& services, nmutil::io::StreamTypeEnum stream, PyObject* text) {
    if (!services->beforePrint()) return false;
    const Py_ssize_t length = PyUnicode_GET_LENGTH(text);
    Printer printer(services, stream);
    switch (PyUnicode_KIND(text)) {
        case PyUnicode_1BYTE_KIND:
            return printer.print(PyUnicode_1BYTE_DATA(text), length);
        case PyUnicode_2BYTE_KIND:
            return printer.print(PyUnicode_2BYTE_DATA(text), length);
        default:
            return printer.print(PyUnicode_4BYTE_DATA(text), length);
    }
}

bool writeToDescriptor(nmutil::io::StreamTypeEnum stream, PyObject* text) {
    const PyRef bytes(PyUnicode_AsEncodedString(text, "utf-8", "replace"));
    if (!bytes) return false;
    const int descriptor = stream == nmutil::io::STANDARD_OUTPUT ? STDOUT_FILENO : STDERR_FILENO;
    const char* data = PyBytes_AS_STRING(bytes.get());
    Py_ssize_t rest = PyBytes_GET_SIZE(bytes.get());
    while (rest > 0) {
        const ssize_t count = ::write(descriptor, data, static_cast<std::size_t>(rest));
        if (count < 0 && errno != EINTR) break;
        if (count > 0) {
            data += count;
            rest -= count;
        }
    }
    return true;
}

}  // namespace

PyObject* printText(InterpreterServices* const& services, nmutil::io::StreamTypeEnum stream, PyObject* text) {
    if (PyUnicode_Check(text) == 0) {
        return PyErr_Format(PyExc_TypeError, "write() argument must be str, not %.200s",
                            Py_TYPE(text)->tp_name);
    }
    if (PyUnicode_READY(text) != 0) return nullptr;
    try {
        if (services == nullptr) {
            if (!writeToDescriptor(stream, text)) return nullptr;
        } else if (PyUnicode_GET_LENGTH(text) > 0) {
            if (!printThrough(services, stream, text)) return nullptr;
        }
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_OSError, error.what());
        return nullptr;
    }
    return PyLong_FromSsize_t(PyUnicode_GET_LENGTH(text));
}

}  // namespace standalone
