#define PY_SSIZE_T_CLEAN
#include "python/arrayValues.h"

#include <cmath>
#include <cstddef>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "python/PyRef.h"

namespace standalone {

namespace {

constexpr double exactIntegers = 9007199254740992.0;  // 2^53: all whole numbers up to it are doubles

/// Goes through an array, which is in column order, in row order.
class Elements {
public:
    explicit Elements(const mxArray& array) : array_(array), dimensions_(array.dimensions()) {}

    PyObject* value() const {
        if (array_.elementCount() == 1) return element(0);
        const bool isRow = dimensions_.size() == 2 && dimensions_[0] == 1;
        return isRow ? nested(1, 0, 1) : nested(0, 0, 1);
    }

private:
    PyObject* nested(std::size_t dimension, std::size_t index, std::size_t stride) const {
        if (dimension == dimensions_.size()) return element(index);
        PyRef list(PyList_New(0));
        for (std::size_t i = 0; list && i < dimensions_[dimension]; ++i) {
            const PyRef item(nested(dimension + 1, index + i * stride, stride * dimensions_[dimension]));
            if (!item || PyList_Append(list.get(), item.get()) != 0) list = PyRef();
        }
        return list.release();
    }

    PyObject* element(std::size_t index) const {
        const auto& content = array_.content();
        if (const auto* numbers = std::get_if<std::vector<double>>(&content))
            return number((*numbers)[index]);
        if (const auto* flags = std::get_if<std::vector<bool>>(&content))
            return PyBool_FromLong((*flags)[index] ? 1 : 0);
        if (const auto* cells = std::get_if<mxArray::Cells>(&content))
            return pythonValue((*cells)[index].get());
        return structure(std::get<mxArray::Fields>(content), index);
    }

    static PyObject* number(double value) {
        const bool isWhole = value == std::floor(value) && std::abs(value) <= exactIntegers;
        return isWhole ? PyLong_FromDouble(value) : PyFloat_FromDouble(value);
    }

    static PyObject* structure(const mxArray::Fields& fields, std::size_t index) {
        PyRef dictionary(PyDict_New());
        for (std::size_t i = 0; dictionary && i < fields.names.size(); ++i) {
            const PyRef item(pythonValue(fields.values[index * fields.names.size() + i].get()));
            if (!item || PyDict_SetItemString(dictionary.get(), fields.names[i].c_str(), item.get()) != 0)
                dictionary = PyRef();
        }
        return dictionary.release();
    }

    const mxArray& array_;
    const mxArray::Dimensions& dimensions_;
};

[[noreturn]] void refuse(const std::string& why) {
    PyErr_Clear();
    throw matrix::ArrayException(why);
}

PyRef checked(PyObject* object) {
    if (object == nullptr) refuse("The value cannot be read.");
    return PyRef(object);
}

bool isNumber(PyObject* value) { return PyFloat_CheckExact(value) != 0 || PyLong_CheckExact(value) != 0; }

double numberOf(PyObject* value) {
    const double number = PyFloat_AsDouble(value);
    if (PyErr_Occurred() != nullptr) refuse("The integer is too large for an array of numbers.");
    return number;
}

bool all(PyObject* list, bool (*is)(PyObject*)) {
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
        if (!is(PyList_GET_ITEM(list, i))) return false;
    }
    return PyList_GET_SIZE(list) > 0;
}

std::size_t sizeOf(PyObject* list) { return static_cast<std::size_t>(PyList_GET_SIZE(list)); }

bool isRow(PyObject* value) { return PyList_CheckExact(value) != 0 && all(value, isNumber); }

// Of a list of rows; null where they are not of one length.
matrix::ArrayPtr matrixOf(PyObject* rows) {
    const std::size_t height = sizeOf(rows), width = sizeOf(PyList_GET_ITEM(rows, 0));
    std::vector<double> numbers(height * width);
    for (std::size_t row = 0; row < height; ++row) {
        PyObject* const items = PyList_GET_ITEM(rows, static_cast<Py_ssize_t>(row));
        if (sizeOf(items) != width) return nullptr;
        for (std::size_t column = 0; column < width; ++column)
            numbers[column * height + row] =
                numberOf(PyList_GET_ITEM(items, static_cast<Py_ssize_t>(column)));
    }
    return matrix::ArrayPtr(new mxArray({height, width}, std::move(numbers)));
}

matrix::ArrayPtr listOf(PyObject* list) {
    const auto size = sizeOf(list);
    if (all(list, isNumber)) {
        std::vector<double> numbers;
        for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i)
            numbers.push_back(numberOf(PyList_GET_ITEM(list, i)));
        return matrix::ArrayPtr(new mxArray({1, size}, std::move(numbers)));
    }
    if (all(list, [](PyObject* item) { return PyBool_Check(item) != 0; })) {
        std::vector<bool> flags;
        for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i)
            flags.push_back(PyList_GET_ITEM(list, i) == Py_True);
        return matrix::ArrayPtr(new mxArray({1, size}, std::move(flags)));
    }
    if (all(list, isRow)) {
        if (auto rows = matrixOf(list)) return rows;
    }
    mxArray::Cells cells;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) cells.push_back(arrayOf(PyList_GET_ITEM(list, i)));
    return matrix::ArrayPtr(new mxArray({size == 0 ? 0U : 1U, size}, std::move(cells)));
}

matrix::ArrayPtr structOf(PyObject* dictionary) {
    std::vector<matrix::Field> fields;
    PyObject *key = nullptr, *value = nullptr;
    for (Py_ssize_t at = 0; PyDict_Next(dictionary, &at, &key, &value) != 0;) {
        const char* const name = PyUnicode_Check(key) != 0 ? PyUnicode_AsUTF8(key) : nullptr;
        if (name == nullptr)
            refuse("The keys of a dictionary must be strings to become the fields of a struct array.");
        fields.push_back({name, arrayOf(value)});
    }
    return matrix::createStruct(std::move(fields));
}

bool isOfNumPy(PyObject* value) {
    const std::string name = Py_TYPE(value)->tp_name;
    return name.starts_with("numpy.") && PyObject_HasAttrString(value, "tolist") != 0;
}

matrix::ArrayPtr unguarded(PyObject* value) {
    if (value == Py_None) return matrix::detail::do_create_uninitnumeric({0, 0}, mxDOUBLE_CLASS, mxREAL);
    if (PyBool_Check(value) != 0) return matrix::createLogical(value == Py_True);
    if (isNumber(value)) return matrix::createScalar(numberOf(value));
    if (PyUnicode_Check(value) != 0) return matrix::create(utf16(value));
    if (PyList_CheckExact(value) != 0) return listOf(value);
    if (PyTuple_Check(value) != 0) return listOf(checked(PySequence_List(value)).get());
    if (PyDict_CheckExact(value) != 0) return structOf(value);
    if (isOfNumPy(value)) {
        const PyRef plain = checked(PyObject_CallMethod(value, "tolist", nullptr));
        if (!isOfNumPy(plain.get())) return arrayOf(plain.get());
    }
    refuse("A value of type " + std::string(Py_TYPE(value)->tp_name) + " cannot be passed as an array.");
}

}  // namespace

PyObject* pythonValue(const mxArray* array) {
    if (array == nullptr) return PyRef::share(Py_None).release();
    if (const auto* text = std::get_if<std::u16string>(&array->content())) return pythonText(*text);
    if (Py_EnterRecursiveCall(" in an array") != 0) return nullptr;
    PyObject* const value = Elements(*array).value();
    Py_LeaveRecursiveCall();
    return value;
}

matrix::ArrayPtr arrayOf(PyObject* value) {
    struct Level {
        Level() {
            if (Py_EnterRecursiveCall(" in a value") != 0) refuse("The value is nested too deeply.");
        }
        ~Level() { Py_LeaveRecursiveCall(); }
    };
    const Level level;
    return unguarded(value);
}

}  // namespace standalone
