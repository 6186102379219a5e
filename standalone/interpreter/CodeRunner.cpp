#define PY_SSIZE_T_CLEAN
#include "interpreter/CodeRunner.h"

#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include <Python.h>

namespace standalone {

namespace {

using cmddistributor::RuntimeException;
using cmddistributor::StackFrame;

constexpr std::size_t keptSourceLimit = 2'000;
constexpr std::string_view incompleteInput = "incomplete input";

PyObject* required(PyObject* object, const char* what) {
    if (object == nullptr) {
        PyErr_Clear();
        throw std::runtime_error(std::string("Python lacks ") + what + ".");
    }
    return object;
}

PyObject* importedAttribute(const char* moduleName, const char* attribute) {
    PyObject* module = required(PyImport_ImportModule(moduleName), moduleName);
    PyObject* value = PyObject_GetAttrString(module, attribute);
    Py_DECREF(module);
    return required(value, attribute);
}

// Whether the error that is set says that the code ends inside an open block.
bool isIncompleteInputSet() {
    if (PyErr_ExceptionMatches(PyExc_SyntaxError) == 0) return false;
    PyObject *type = nullptr, *value = nullptr, *trace = nullptr;
    PyErr_Fetch(&type, &value, &trace);
    PyErr_NormalizeException(&type, &value, &trace);
    PyObject* message = PyObject_GetAttrString(value, "msg");
    const char* text =
        message != nullptr && PyUnicode_Check(message) != 0 ? PyUnicode_AsUTF8(message) : nullptr;
    const bool isIncomplete = text != nullptr && incompleteInput == text;
    Py_XDECREF(message);
    PyErr_Restore(type, value, trace);
    return isIncomplete;
}

// Whether the code that was compiled defines functions or classes, which may outlive its run.
bool definesFunctions(PyObject* code) {
    PyObject* constants = reinterpret_cast<PyCodeObject*>(code)->co_consts;
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(constants); ++i) {
        if (PyCode_Check(PyTuple_GET_ITEM(constants, i)) != 0) return true;
    }
    return false;
}

}  // namespace

// An owned reference, or none.
class CodeRunner::Ref {
public:
    explicit Ref(PyObject* object = nullptr) : object_(object) {}
    ~Ref() { Py_XDECREF(object_); }
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Ref& operator=(Ref&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    PyObject* get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

private:
    PyObject* object_;
};

CodeRunner::CodeRunner(PyObject* runtimeModule)
    : globals_(PyModule_GetDict(required(PyImport_AddModule("__main__"), "__main__"))),
      report_(required(PyObject_GetAttrString(runtimeModule, "report"), "report")),
      compile_(importedAttribute("builtins", "compile")),
      expressionType_(importedAttribute("_ast", "Expr")),
      interactiveType_(importedAttribute("_ast", "Interactive")),
      sourceCache_(importedAttribute("linecache", "cache")) {}

CodeRunner::~CodeRunner() {
    for (PyObject* name : keptSources_) Py_DECREF(name);
    for (PyObject* object : {report_, compile_, expressionType_, interactiveType_, sourceCache_, error_}) {
        Py_XDECREF(object);
    }
}

CodeRunner::Result CodeRunner::execute(const std::u16string& code) {
    if (code.size() > codeLimit) {
        PyErr_Format(PyExc_ValueError, "The code is %zu UTF-16 units long; at most %zu are accepted.",
                     code.size(), codeLimit);
        return failed();
    }
    const Ref source(pythonText(code));
    const Ref fileName(PyUnicode_FromFormat("<eval %llu>", static_cast<unsigned long long>(++count_)));
    if (!source || !fileName) return failed();

    // One simple statement needs no look at its syntax tree: Python's interactive mode does with it what is
    // wanted here. Whatever that mode does not take, errors included, goes the long way.
    const bool isSimple = code.find_first_of(u"\n\r;:\f") == std::u16string::npos;
    const Ref simple =
        isSimple ? compileSource(code, source.get(), fileName.get(), Py_single_input, 0) : Ref();
    PyErr_Clear();
    const Ref tree = simple ? Ref()
                            : compileSource(code, source.get(), fileName.get(), Py_file_input,
                                            PyCF_ONLY_AST | PyCF_ALLOW_INCOMPLETE_INPUT);
    if (!simple && !tree) {
        if (!isIncompleteInputSet()) return failed();
        PyErr_Clear();
        return Result::Incomplete;
    }
    rememberSource(source.get(), fileName.get());
    definesFunctions_ = false;
    const bool isDone = simple ? runCode(simple.get()) : runTree(tree.get(), fileName.get());
    const Result result = isDone ? Result::Done : failed();
    forgetSource(fileName.get());
    return result;
}

// Takes the error that is set, for takeError.
CodeRunner::Result CodeRunner::failed() {
    PyObject *type = nullptr, *value = nullptr, *trace = nullptr;
    PyErr_Fetch(&type, &value, &trace);
    PyErr_NormalizeException(&type, &value, &trace);
    if (trace != nullptr) PyException_SetTraceback(value, trace);
    Py_XDECREF(type);
    Py_XDECREF(trace);
    Py_XSETREF(error_, value);
    return Result::Failed;
}

bool CodeRunner::isComplete(const std::u16string& code) {
    const Ref source(pythonText(code));
    const Ref fileName(PyUnicode_FromString("<input>"));
    if (!source || !fileName) {
        PyErr_Clear();
        return true;
    }
    const Ref tree = compileSource(code, source.get(), fileName.get(), Py_file_input,
                                   PyCF_ONLY_AST | PyCF_ALLOW_INCOMPLETE_INPUT);
    const bool isIncomplete = !tree && isIncompleteInputSet();
    PyErr_Clear();
    return !isIncomplete;
}

CodeRunner::Ref CodeRunner::compileSource(const std::u16string& code, PyObject* source, PyObject* fileName,
                                          int start, int extraFlags) {
    if (code.find(u'\0') != std::u16string::npos) {
        PyErr_SetString(PyExc_SyntaxError, "The code contains a null character.");
        return Ref();
    }
    const char* utf8 = PyUnicode_AsUTF8(source);  // fails on an unpaired surrogate
    if (utf8 == nullptr) return Ref();
    PyCompilerFlags flags{};
    flags.cf_flags = futureFlags_ | PyCF_IGNORE_COOKIE | extraFlags;
    flags.cf_feature_version = PY_MINOR_VERSION;
    return Ref(Py_CompileStringObject(utf8, fileName, start, &flags, -1));
}

// Runs the statements; a last one that is an expression runs in the mode that displays its value.
bool CodeRunner::runTree(PyObject* tree, PyObject* fileName) {
    const Ref body(PyObject_GetAttrString(tree, "body"));
    if (!body) return false;
    const Py_ssize_t count = PyList_GET_SIZE(body.get());
    const bool endsWithExpression = count > 0 && Py_IS_TYPE(PyList_GET_ITEM(body.get(), count - 1),
                                                            reinterpret_cast<PyTypeObject*>(expressionType_));
    if (!endsWithExpression) return runPart(tree, fileName, "exec");

    const Ref last(PyList_GetSlice(body.get(), count - 1, count));
    if (!last || PyList_SetSlice(body.get(), count - 1, count, nullptr) != 0) return false;
    if (count > 1 && !runPart(tree, fileName, "exec")) return false;
    const Ref display(PyObject_CallOneArg(interactiveType_, last.get()));
    return display && runPart(display.get(), fileName, "single");
}

bool CodeRunner::runPart(PyObject* tree, PyObject* fileName, const char* mode) {
    const Ref code(PyObject_CallFunction(compile_, "OOsii", tree, fileName, mode, futureFlags_, 1));
    return code && runCode(code.get());
}

bool CodeRunner::runCode(PyObject* code) {
    futureFlags_ |= reinterpret_cast<PyCodeObject*>(code)->co_flags & PyCF_MASK;
    definesFunctions_ = definesFunctions_ || definesFunctions(code);
    const Ref value(PyEval_EvalCode(code, globals_, globals_));
    return static_cast<bool>(value);
}

// Tracebacks, the debugger and the inspect module find source lines in the cache of the module linecache.
void CodeRunner::rememberSource(PyObject* source, PyObject* fileName) {
    // Like the lines of a file, each is expected to end with a newline.
    const Ref newline(PyUnicode_FromString("\n"));
    const Ref text(newline ? PyUnicode_Concat(source, newline.get()) : nullptr);
    const Ref lines(text ? PyUnicode_Splitlines(text.get(), 1) : nullptr);
    const Ref entry(
        lines ? Py_BuildValue("(nOOO)", PyUnicode_GET_LENGTH(source), Py_None, lines.get(), fileName)
              : nullptr);
    if (!entry || PyDict_SetItem(sourceCache_, fileName, entry.get()) != 0) PyErr_Clear();
}

// Keeps the source of code that defined functions or failed, up to a bound; drops that of the rest.
void CodeRunner::forgetSource(PyObject* fileName) {
    Ref dropped;
    if (definesFunctions_ || error_ != nullptr) {
        Py_INCREF(fileName);
        keptSources_.push_back(fileName);
        if (keptSources_.size() <= keptSourceLimit) return;
        dropped = Ref(keptSources_.front());
        keptSources_.pop_front();
        fileName = dropped.get();
    }
    if (PyDict_DelItem(sourceCache_, fileName) != 0) PyErr_Clear();
}

boost::optional<CodeError> CodeRunner::takeError() {
    const Ref error(std::exchange(error_, nullptr));
    return describe(error.get());
}

boost::optional<CodeError> CodeRunner::describe(PyObject* error) {
    const auto failure = [](nmutil::cmddistributor::inExecutionStatus status, const std::u16string& type,
                            std::u16string message, std::u16string text, std::vector<StackFrame> frames) {
        std::string identifier = "NUMORA:";
        for (const char16_t unit : type) identifier.push_back(unit < 0x80 ? static_cast<char>(unit) : '?');
        return RuntimeException(status, std::move(identifier), std::move(message), std::move(text),
                                std::move(frames));
    };
    const Ref report(error != nullptr ? PyObject_CallOneArg(report_, error) : nullptr);
    const char* kind = nullptr;
    PyObject *type = nullptr, *message = nullptr, *text = nullptr, *frames = nullptr, *suggestion = nullptr;
    if (!report || PyArg_ParseTuple(report.get(), "sUUUO!O", &kind, &type, &message, &text, &PyList_Type,
                                    &frames, &suggestion) == 0) {
        // Not even the description worked, for want of memory or because of a faulty __str__.
        PyErr_Clear();
        const std::string name = error != nullptr ? Py_TYPE(error)->tp_name : "Error";
        const std::u16string wide(name.begin(), name.end());
        return CodeError{failure(nmutil::cmddistributor::EXECUTION_ERROR, wide, wide, wide + u"\n", {}), {}};
    }
    if (std::string_view(kind) == "exit") return boost::none;

    std::vector<StackFrame> stack;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(frames); ++i) {
        PyObject *file = nullptr, *function = nullptr;
        int line = 0;
        if (PyArg_ParseTuple(PyList_GET_ITEM(frames, i), "UUi", &file, &function, &line) != 0) {
            stack.push_back(StackFrame{utf16(file), utf16(function), line});
        }
        PyErr_Clear();
    }
    const auto status = std::string_view(kind) == "interrupt" ? nmutil::cmddistributor::EXECUTION_INTERRUPTED
                                                              : nmutil::cmddistributor::EXECUTION_ERROR;
    CodeError described{failure(status, utf16(type), utf16(message), utf16(text), std::move(stack)), {}};
    if (suggestion != Py_None) described.suggestion = utf16(suggestion);
    return described;
}

}  // namespace standalone
