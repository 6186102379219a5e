#define PY_SSIZE_T_CLEAN
#include "python/pythonText.h"

#include <Python.h>

namespace standalone {

PyObject* pythonText(std::u16string_view text) {
    int byteOrder = PY_LITTLE_ENDIAN ? -1 : 1;
    return PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(text.data()),
                                 static_cast<Py_ssize_t>(text.size() * sizeof(char16_t)), "surrogatepass",
                                 &byteOrder);
}

std::u16string utf16(PyObject* text) {
    std::u16string units;
    if (text == nullptr || PyUnicode_Check(text) == 0 || PyUnicode_READY(text) != 0) return units;
    const Py_ssize_t length = PyUnicode_GET_LENGTH(text);
    units.reserve(static_cast<std::size_t>(length));
    for (Py_ssize_t i = 0; i < length; ++i) {
        const Py_UCS4 point = PyUnicode_READ_CHAR(text, i);
        if (point > 0xFFFF) {
            units.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10U)));
            units.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FFU)));
        } else {
            units.push_back(static_cast<char16_t>(point));
        }
    }
    return units;
}

}  // namespace standalone
