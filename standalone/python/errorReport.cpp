#define PY_SSIZE_T_CLEAN
#include "python/errorReport.h"

#include <string_view>
#include <utility>
#include <vector>

#include "python/pythonText.h"

namespace standalone {

namespace {

using cmddistributor::RuntimeException;
using cmddistributor::StackFrame;
using nmutil::cmddistributor::inExecutionStatus;

RuntimeException makeException(inExecutionStatus status, const std::u16string& type, std::u16string message,
                               std::u16string text, std::vector<StackFrame> frames,
                               std::vector<RuntimeException> causes = {}) {
    std::string identifier = "NUMORA:";
    for (const char16_t unit : type) identifier.push_back(unit < 0x80 ? static_cast<char>(unit) : '?');
    return {status,          std::move(identifier), std::move(message),
            std::move(text), std::move(frames),     std::move(causes)};
}

CodeError undescribed(PyObject* error) {
    const std::string_view name = error != nullptr ? Py_TYPE(error)->tp_name : "Error";
    const std::u16string type(name.begin(), name.end());
    const bool isInterrupt =
        error != nullptr && PyErr_GivenExceptionMatches(error, PyExc_KeyboardInterrupt) != 0;
    const auto status =
        isInterrupt ? nmutil::cmddistributor::EXECUTION_INTERRUPTED : nmutil::cmddistributor::EXECUTION_ERROR;
    return {makeException(status, type, type, type + u"\n", {}), boost::none, boost::none, false};
}

std::vector<StackFrame> stackOf(PyObject* frames) {
    std::vector<StackFrame> stack;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(frames); ++i) {
        PyObject *file = nullptr, *function = nullptr;
        int line = 0;
        if (PyArg_ParseTuple(PyList_GET_ITEM(frames, i), "UUi", &file, &function, &line) != 0) {
            stack.push_back(StackFrame{utf16(file), utf16(function), line});
        }
        PyErr_Clear();
    }
    return stack;
}

// Each cause is one of the error before it; the nearest comes first in the list.
std::vector<RuntimeException> causesOf(PyObject* list) {
    std::vector<RuntimeException> causes;
    for (Py_ssize_t i = PyList_GET_SIZE(list); i-- > 0;) {
        PyObject *type = nullptr, *message = nullptr, *frames = nullptr;
        if (PyArg_ParseTuple(PyList_GET_ITEM(list, i), "UUO!", &type, &message, &PyList_Type, &frames) != 0) {
            auto cause = makeException(nmutil::cmddistributor::EXECUTION_ERROR, utf16(type), utf16(message),
                                       {}, stackOf(frames), std::move(causes));
            causes = {std::move(cause)};
        }
        PyErr_Clear();
    }
    return causes;
}

}  // namespace

boost::optional<CodeError> describeError(PyObject* report, PyObject* error) {
    const PyRef answer(error != nullptr ? PyObject_CallOneArg(report, error) : nullptr);
    const char* kind = nullptr;
    PyObject *type = nullptr, *message = nullptr, *text = nullptr, *frames = nullptr, *suggestion = nullptr;
    PyObject* causes = nullptr;
    const char* builtin = nullptr;
    int isInExtension = 0;
    if (!answer ||
        PyArg_ParseTuple(answer.get(), "sUUUO!OO!zp", &kind, &type, &message, &text, &PyList_Type, &frames,
                         &suggestion, &PyList_Type, &causes, &builtin, &isInExtension) == 0) {
        PyErr_Clear();
        return undescribed(error);
    }
    if (std::string_view(kind) == "exit") return boost::none;
    const auto status = std::string_view(kind) == "interrupt" ? nmutil::cmddistributor::EXECUTION_INTERRUPTED
                                                              : nmutil::cmddistributor::EXECUTION_ERROR;
    CodeError described{
        makeException(status, utf16(type), utf16(message), utf16(text), stackOf(frames), causesOf(causes)),
        {},
        builtin != nullptr ? boost::make_optional(std::string(builtin)) : boost::none,
        isInExtension != 0};
    if (suggestion != Py_None) described.suggestion = utf16(suggestion);
    return described;
}

}  // namespace standalone
