#define PY_SSIZE_T_CLEAN
#include "python/FunctionCaller.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

#include "cmddistributor/RuntimeException.h"
#include "connector/common/DataBuffer.h"
#include "fl/i18n/text.h"
#include "python/JsonWriter.h"
#include "python/arrayValues.h"
#include "python/errorReport.h"
#include "python/pythonText.h"

namespace standalone {

namespace {

constexpr const char* callJson = "connector.internal.fevalJSON";

std::vector<matrix::ArrayPtr> answer(std::u16string results, bool isError, std::u16string faultMessage,
                                     std::u16string faultId = {}) {
    std::vector<matrix::Field> fields;
    fields.push_back({"results", matrix::create(std::move(results))});
    fields.push_back({"error", matrix::createLogical(isError)});
    fields.push_back({"faultMessage", matrix::create(std::move(faultMessage))});
    if (!faultId.empty()) fields.push_back({"faultId", matrix::create(std::move(faultId))});
    std::vector<matrix::ArrayPtr> outputs;
    outputs.push_back(matrix::createStruct(std::move(fields)));
    return outputs;
}

cmddistributor::RuntimeException refusal(std::u16string message) {
    return {nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:feval", message, message + u"\n"};
}

std::string nameOf(const cmddistributor::FEvalIIP::Function& function) {
    if (const auto* name = std::get_if<std::string>(&function)) return *name;
    const auto& handle = std::get<std::shared_ptr<const mxArray>>(function);
    if (!handle || handle->classId() != mxCHAR_CLASS)
        throw refusal(u"A function handle must be a char array with the name of a function.");
    return fl::i18n::to_string(matrix::get_ustring(*handle));
}

// The Python exception that is set, which is cleared.
PyRef takeException() {
    PyObject *type = nullptr, *value = nullptr, *trace = nullptr;
    PyErr_Fetch(&type, &value, &trace);
    PyErr_NormalizeException(&type, &value, &trace);
    if (trace != nullptr) PyException_SetTraceback(value, trace);
    const PyRef ownType(type), ownTrace(trace);
    return PyRef(value);
}

}  // namespace

FunctionCaller::FunctionCaller(PyObject* runtimeModule)
    : report_(PyObject_GetAttrString(runtimeModule, "report")) {
    if (report_) return;
    PyErr_Clear();
    throw std::runtime_error("The Python runtime module cannot describe errors.");
}

bool FunctionCaller::load() {
    if (call_) return true;
    const PyRef module(PyImport_ImportModule("numora._calls"));
    const auto attribute = [&module](const char* name) {
        return PyRef(module ? PyObject_GetAttrString(module.get(), name) : nullptr);
    };
    callWithValues_ = attribute("call_with_values");
    if (callWithValues_) message_ = attribute("message");
    if (message_) call_ = attribute("call");
    return static_cast<bool>(call_);
}

std::vector<matrix::ArrayPtr> FunctionCaller::call(const cmddistributor::FEvalIIP& iip) {
    const std::string name = nameOf(iip.function());
    return name == callJson ? callThroughJson(*iip.data()) : callWithArrays(name, iip);
}

std::u16string FunctionCaller::textOf(const cmddistributor::FEvalIIP& iip, std::size_t most) {
    const auto* const name = std::get_if<std::string>(&iip.function());
    const auto& arguments = iip.data()->arguments;
    const auto isText = [](const auto& argument) { return argument && argument->classId() == mxCHAR_CLASS; };
    if (name == nullptr || *name != callJson || arguments.size() < 2 || !isText(arguments[0]))
        return iip.toCustomerFriendlyString().substr(0, most);
    std::u16string text = matrix::get_ustring(*arguments[0]) + u"(";
    for (std::size_t i = 2; i < arguments.size() && text.size() < most; ++i) {
        if (i > 2) text += u", ";
        if (isText(arguments[i])) text.append(matrix::get_ustring(*arguments[i]), 0, most);
    }
    return (text + u")").substr(0, most);
}

std::vector<matrix::ArrayPtr> FunctionCaller::callWithArrays(const std::string& name,
                                                             const cmddistributor::FEvalIIP& iip) {
    const PyRef values(load() ? PyList_New(0) : nullptr);
    for (const auto& argument : iip.data()->arguments) {
        const PyRef value(values ? pythonValue(argument.get()) : nullptr);
        if (!value || PyList_Append(values.get(), value.get()) != 0) break;
    }
    const PyRef results(PyErr_Occurred() == nullptr
                            ? PyObject_CallFunction(callWithValues_.get(), "s#iO", name.data(),
                                                    static_cast<Py_ssize_t>(name.size()), iip.nargout(),
                                                    values.get())
                            : nullptr);
    std::vector<matrix::ArrayPtr> outputs;
    if (!results) {
        const PyRef error = takeException();
        // Code that ends itself in an orderly way returns nothing.
        if (const auto described = describeError(report_.get(), error.get())) throw described->exception;
        return outputs;
    }
    try {
        for (Py_ssize_t i = 0; i < PyList_GET_SIZE(results.get()); ++i)
            outputs.push_back(arrayOf(PyList_GET_ITEM(results.get(), i)));
    } catch (const matrix::ArrayException& error) {
        throw refusal(fl::i18n::to_ustring(error.what()));
    }
    return outputs;
}

std::vector<matrix::ArrayPtr> FunctionCaller::callThroughJson(const cmddistributor::FEvalIIP::Data& data) {
    const auto& arguments = data.arguments;
    if (arguments.size() < 2) throw refusal(u"The internal function needs a name and a number of results.");

    const PyRef texts(load() ? PyList_New(0) : nullptr);
    for (std::size_t i = 2; texts && i < arguments.size(); ++i) {
        const PyRef text(pythonText(matrix::get_ustring(*arguments[i])));
        if (!text || PyList_Append(texts.get(), text.get()) != 0) break;
    }
    const PyRef function(pythonText(matrix::get_ustring(*arguments[0])));
    const PyRef returned(texts && function && PyErr_Occurred() == nullptr
                             ? PyObject_CallFunction(call_.get(), "OdO", function.get(),
                                                     matrix::get_scalar(*arguments[1]), texts.get())
                             : nullptr);
    PyObject *results = nullptr, *fault = nullptr, *faultId = nullptr;
    if (!returned || PyArg_ParseTuple(returned.get(), "OOU", &results, &fault, &faultId) == 0)
        return failed();
    if (fault != Py_None) return answer(u"[]", true, utf16(fault), utf16(faultId));
    connector::common::DataBuffer json;
    if (!JsonWriter(json).write(results)) return failed();
    return answer(fl::i18n::to_ustring(json.view()), false, {});
}

std::vector<matrix::ArrayPtr> FunctionCaller::failed() {
    const PyRef error = takeException();
    const PyRef message(error && load() ? PyObject_CallOneArg(message_.get(), error.get()) : nullptr);
    if (message) return answer(u"[]", true, utf16(message.get()));
    // Not even the failure could be put into words, for want of memory or because of another interrupt.
    const bool isInterrupt = PyErr_ExceptionMatches(PyExc_KeyboardInterrupt) != 0;
    PyErr_Clear();
    return answer(u"[]", true, isInterrupt ? u"KeyboardInterrupt" : u"The call failed.");
}

}  // namespace standalone
