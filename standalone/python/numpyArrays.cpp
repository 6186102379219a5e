#define PY_SSIZE_T_CLEAN
#include "python/numpyArrays.h"

namespace standalone {

bool isOfNumPyClass(PyObject* value, const char* module, const char* name) {
    PyObject* const loaded = PyDict_GetItemString(PyImport_GetModuleDict(), module);  // borrowed
    const PyRef type(loaded != nullptr ? PyObject_GetAttrString(loaded, name) : nullptr);
    if (!type) PyErr_Clear();
    return type && PyType_Check(type.get()) &&
           PyObject_TypeCheck(value, reinterpret_cast<PyTypeObject*>(type.get()));
}

PyRef inRowOrder(PyObject* array, const char* type, bool isCopy) {
    PyObject* const numpy = PyDict_GetItemString(PyImport_GetModuleDict(), "numpy");  // borrowed
    const PyRef make(numpy != nullptr ? PyObject_GetAttrString(numpy, "array") : nullptr);
    const PyRef arguments(make ? Py_BuildValue("(O)", array) : nullptr);
    const PyRef options(arguments ? Py_BuildValue("{s:s,s:O,s:s}", "dtype", type, "copy",
                                                  isCopy ? Py_True : Py_False, "order", "C")
                                  : nullptr);
    if (!options && PyErr_Occurred() == nullptr) PyErr_SetString(PyExc_TypeError, "NumPy is not loaded");
    return PyRef(options ? PyObject_Call(make.get(), arguments.get(), options.get()) : nullptr);
}

}  // namespace standalone
