#define PY_SSIZE_T_CLEAN
#include "interpreter/FunctionCaller.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

#include "cmddistributor/RuntimeException.h"
#include "interpreter/pythonText.h"

namespace standalone {

namespace {

constexpr const char* callJson = "connector.internal.fevalJSON";

matrix::ArrayPtr answer(std::u16string results, bool isError, std::u16string faultMessage) {
    std::vector<matrix::Field> fields;
    fields.push_back({"results", matrix::create(std::move(results))});
    fields.push_back({"error", matrix::createLogical(isError)});
    fields.push_back({"faultMessage", matrix::create(std::move(faultMessage))});
    return matrix::createStruct(std::move(fields));
}

cmddistributor::RuntimeException refusal(std::u16string message) {
    return {nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:feval", std::move(message)};
}

}  // namespace

FunctionCaller::FunctionCaller(PyObject* runtimeModule)
    : call_(PyObject_GetAttrString(runtimeModule, "call")) {
    if (!call_) {
        PyErr_Clear();
        throw std::runtime_error("The Python runtime module has no function to call others.");
    }
}

std::vector<matrix::ArrayPtr> FunctionCaller::call(const cmddistributor::FEvalIIP& iip) {
    const auto* name = std::get_if<std::string>(&iip.function());
    const auto& arguments = iip.data()->arguments;
    if (name == nullptr || *name != callJson) throw refusal(u"There is no such internal function.");
    if (arguments.size() < 2) throw refusal(u"The internal function needs a name and a number of results.");

    const PyRef texts(PyList_New(0));
    for (std::size_t i = 2; texts && i < arguments.size(); ++i) {
        const PyRef text(pythonText(matrix::get_ustring(*arguments[i])));
        if (!text || PyList_Append(texts.get(), text.get()) != 0) break;
    }
    const PyRef function(pythonText(matrix::get_ustring(*arguments[0])));
    const PyRef returned(texts && function && PyErr_Occurred() == nullptr
                             ? PyObject_CallFunction(call_.get(), "OdO", function.get(),
                                                     matrix::get_scalar(*arguments[1]), texts.get())
                             : nullptr);
    std::vector<matrix::ArrayPtr> outputs;
    PyObject *results = nullptr, *fault = nullptr;
    if (returned && PyArg_ParseTuple(returned.get(), "UO", &results, &fault) != 0) {
        outputs.push_back(answer(utf16(results), fault != Py_None, utf16(fault)));
    } else {
        // Not even the failure could be put into words, for want of memory or because of an interrupt.
        const bool isInterrupt = PyErr_ExceptionMatches(PyExc_KeyboardInterrupt) != 0;
        PyErr_Clear();
        outputs.push_back(answer(u"[]", true, isInterrupt ? u"KeyboardInterrupt" : u"The call failed."));
    }
    return outputs;
}

}  // namespace standalone
