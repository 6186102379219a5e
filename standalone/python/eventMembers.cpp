#define PY_SSIZE_T_CLEAN
#include "python/eventMembers.h"

#include <Python.h>

#include "python/JsonWriter.h"
#include "python/PyRef.h"

namespace standalone {

bool EventMembers::add(PyObject* dictionary, TaggedEvent::Members& members) {
    // Writing runs other requests now and then, which may change the dictionary.
    const PyRef items(PyDict_Items(dictionary));
    for (Py_ssize_t i = 0; items && i < PyList_GET_SIZE(items.get()); ++i) {
        PyObject* const item = PyList_GET_ITEM(items.get(), i);
        const char* const key = PyUnicode_AsUTF8(PyTuple_GET_ITEM(item, 0));
        connector::common::DataBuffer json;
        if (key == nullptr || !JsonWriter(json).write(PyTuple_GET_ITEM(item, 1))) return false;
        bytes_ += json.size();
        if (bytes_ > limit_) {
            PyErr_Format(PyExc_ValueError, "an event must not carry more than %zu MiB of JSON",
                         limit_ >> 20U);
            return false;
        }
        members.emplace(key,
                        foundation::json::Value(foundation::json::Value::Json{std::string(json.view())}));
    }
    return static_cast<bool>(items);
}

}  // namespace standalone
