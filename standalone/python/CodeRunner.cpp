#define PY_SSIZE_T_CLEAN
#include "python/CodeRunner.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "python/pythonText.h"
#include "python/semicolon.h"

namespace standalone {

namespace {

PyObject* required(PyObject* object, const char* what) {
    if (object == nullptr) {
        PyErr_Clear();
        throw std::runtime_error(std::string("Python lacks ") + what + ".");
    }
    return object;
}

PyRef importedAttribute(const char* moduleName, const char* attribute) {
    const PyRef module(required(PyImport_ImportModule(moduleName), moduleName));
    return PyRef(required(PyObject_GetAttrString(module.get(), attribute), attribute));
}

// Whether the error that is set says that the code ends inside an open block.
bool isIncompleteInputSet() {
    if (PyErr_ExceptionMatches(PyExc_SyntaxError) == 0) return false;
    PyObject *type = nullptr, *value = nullptr, *trace = nullptr;
    PyErr_Fetch(&type, &value, &trace);
    PyErr_NormalizeException(&type, &value, &trace);
    const PyRef message(PyObject_GetAttrString(value, "msg"));
    const char* text =
        message && PyUnicode_Check(message.get()) != 0 ? PyUnicode_AsUTF8(message.get()) : nullptr;
    const bool isIncomplete = text != nullptr && std::string_view(text) == "incomplete input";
    PyErr_Restore(type, value, trace);
    return isIncomplete;
}

bool isCoroutine(PyObject* code) {
    return (reinterpret_cast<PyCodeObject*>(code)->co_flags & CO_COROUTINE) != 0;
}

// Whether a cell that may be Python, such as `ls -l`, is meant as a magic without its %: those that are
// written so.
bool mayBeMagic(std::u16string_view code) {
    constexpr std::array<std::u16string_view, 5> names = {u"cd", u"conda", u"ls", u"pip", u"pwd"};
    const auto name = code.substr(0, code.find_first_of(u" \t\r\n"));
    return std::ranges::find(names, name) != names.end();
}

// Whether the code that was compiled defines functions or classes, which may outlive its run.
bool definesFunctions(PyObject* code) {
    PyObject* constants = reinterpret_cast<PyCodeObject*>(code)->co_consts;
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(constants); ++i) {
        if (PyCode_Check(PyTuple_GET_ITEM(constants, i)) != 0) return true;
    }
    return false;
}

long positionOf(PyObject* node, const char* attribute) {
    const PyRef value(PyObject_GetAttrString(node, attribute));
    const long position = value ? PyLong_AsLong(value.get()) : -1;
    PyErr_Clear();
    return position;
}

// Whether the value of an expression is not to be displayed, since a semicolon comes after it.
bool isSilenced(PyObject* expression, PyObject* source) {
    Py_ssize_t size = 0;
    const char* const utf8 = PyUnicode_AsUTF8AndSize(source, &size);
    return utf8 != nullptr &&
           isSemicolonAfter({utf8, static_cast<std::size_t>(size)}, positionOf(expression, "end_lineno"),
                            positionOf(expression, "end_col_offset"));
}

// Syntax trees become Python objects on the way to the compiler, which counts their depth against the
// recursion limit: long sums and chains of elif, which are fine in a file, would fail at the usual one.
class DeepTrees {
public:
    DeepTrees() : limit_(Py_GetRecursionLimit()) { Py_SetRecursionLimit(std::max(limit_, 5'000)); }
    ~DeepTrees() { Py_SetRecursionLimit(limit_); }
    DeepTrees(const DeepTrees&) = delete;
    DeepTrees& operator=(const DeepTrees&) = delete;

private:
    const int limit_;
};

}  // namespace

CodeRunner::CodeRunner(PyObject* runtimeModule, std::function<void()> beforeRun)
    : beforeRun_(std::move(beforeRun)),
      runtimeModule_(PyRef::share(runtimeModule)),
      mainModule_(PyRef::share(required(PyImport_AddModule("__main__"), "__main__"))),
      globals_(PyModule_GetDict(mainModule_.get())),
      report_(required(PyObject_GetAttrString(runtimeModule, "report"), "report")),
      remember_(required(PyObject_GetAttrString(runtimeModule, "remember"), "remember")),
      runCoroutine_(required(PyObject_GetAttrString(runtimeModule, "run_coroutine"), "run_coroutine")),
      runInLoop_(required(PyObject_GetAttrString(runtimeModule, "run_in_loop"), "run_in_loop")),
      compile_(importedAttribute("builtins", "compile")),
      expressionType_(importedAttribute("_ast", "Expr")),
      interactiveType_(importedAttribute("_ast", "Interactive")) {}

CodeRunner::Result CodeRunner::execute(const std::u16string& code, Kind kind) {
    constexpr char16_t byteOrderMark = 0xFEFF;
    if (code.starts_with(byteOrderMark)) return execute(code.substr(1), kind);
    ++count_;
    if (code.size() > codeLimit) {
        PyErr_Format(PyExc_ValueError, "The code is %zu UTF-16 units long; at most %zu are accepted.",
                     code.size(), codeLimit);
        return failed();
    }
    Piece piece{.code = code, .source = PyRef(pythonText(code)), .fileName = PyRef()};
    if (piece.source) piece.fileName = nameFile(piece.source.get(), kind);
    if (!piece.fileName) return failed();
    const PyRef number(PyLong_FromUnsignedLongLong(count_));
    if (kind != Kind::Internal && number) {
        const PyRef done(
            PyObject_CallFunctionObjArgs(remember_.get(), number.get(), piece.source.get(), nullptr));
    }
    PyErr_Clear();

    const bool isMagic = kind == Kind::Cell && mayBeMagic(code) && compileAsCell(piece);
    if (!isMagic && PyErr_Occurred() != nullptr) return failed();
    if (!isMagic && !compile(piece) && !(kind == Kind::Cell && compileAsCell(piece))) {
        if (kind == Kind::Cell || !isIncompleteInputSet()) return failed();
        PyErr_Clear();
        return Result::Incomplete;
    }
    sources_.add(piece.code, piece.fileName.get());
    bool isSourceWanted = false;
    const bool isDone =
        piece.simple ? runCode(piece.simple.get(), isSourceWanted)
                     : runTree(piece.tree.get(), piece.source.get(), piece.fileName.get(), isSourceWanted);
    const Result result = isDone ? Result::Done : failed();
    sources_.keepOrDrop(piece.code, piece.fileName.get(), isSourceWanted || !isDone);
    return result;
}

// What runs before a cell may have to be interrupted, too.
PyRef CodeRunner::nameFile(PyObject* source, Kind kind) {
    if (kind != Kind::Cell) {
        return PyRef(PyUnicode_FromFormat("<eval %llu>", static_cast<unsigned long long>(count_)));
    }
    beforeRun_();
    return PyRef(PyObject_CallMethod(runtimeModule_.get(), "begin_cell", "O", source));
}

// One simple statement needs no look at its syntax tree: Python's interactive mode does with it what is
// wanted here. Whatever that mode does not take, errors included, goes the long way.
bool CodeRunner::compile(Piece& piece) {
    const bool isSimple = piece.code.find_first_of(u"\n\r;:\f") == std::u16string::npos;
    if (isSimple) {
        piece.simple = compileSource(piece.code, piece.source.get(), piece.fileName.get(), Mode::Simple);
        if (piece.simple) return true;
        PyErr_Clear();
    }
    piece.tree = compileSource(piece.code, piece.source.get(), piece.fileName.get(), Mode::Tree);
    return static_cast<bool>(piece.tree);
}

// Compiles what the magics and the like of a cell stand for. Where it has none the error stays set, if there
// is one.
bool CodeRunner::compileAsCell(Piece& piece) {
    PyObject *type = nullptr, *error = nullptr, *trace = nullptr;
    PyErr_Fetch(&type, &error, &trace);
    PyErr_NormalizeException(&type, &error, &trace);
    PyRef code(PyObject_CallMethod(runtimeModule_.get(), "plain_cell", "OO", piece.source.get(),
                                   error != nullptr ? error : Py_None));
    const bool isPlain = code && PyUnicode_Check(code.get()) != 0;
    if (isPlain || !code) {  // what fails there is the error
        Py_XDECREF(type);
        Py_XDECREF(error);
        Py_XDECREF(trace);
        if (!isPlain) return false;
        piece.code = utf16(code.get());
        piece.source = std::move(code);
        return compile(piece);
    }
    PyErr_Restore(type, error, trace);
    return false;
}

void CodeRunner::endCell(bool isError) {
    const PyRef done(
        PyObject_CallMethod(runtimeModule_.get(), "end_cell", "O", isError ? Py_True : Py_False));
    PyErr_Clear();
}

bool CodeRunner::isComplete(const std::u16string& code) {
    const PyRef source(pythonText(code));
    const PyRef fileName(PyUnicode_FromString("<input>"));
    const PyRef tree =
        source && fileName ? compileSource(code, source.get(), fileName.get(), Mode::Tree) : PyRef();
    const bool isIncomplete = !tree && isIncompleteInputSet();
    PyErr_Clear();
    return !isIncomplete;
}

boost::optional<CodeError> CodeRunner::takeError() {
    const PyRef error = std::exchange(error_, PyRef());
    return describeError(report_.get(), error.get());
}

void CodeRunner::exitForkedChild() {
    const PyRef status(
        PyObject_CallMethod(runtimeModule_.get(), "end_forked_child", "O", error_ ? error_.get() : Py_None));
    PyErr_Clear();
    std::_Exit(status ? static_cast<int>(PyLong_AsLong(status.get())) : 1);
}

PyRef CodeRunner::compileSource(const std::u16string& code, PyObject* source, PyObject* fileName, Mode mode) {
    if (code.find(u'\0') != std::u16string::npos) {
        PyErr_SetString(PyExc_SyntaxError, "The code contains a null character.");
        return PyRef();
    }
    const char* utf8 = PyUnicode_AsUTF8(source);  // fails on an unpaired surrogate
    if (utf8 == nullptr) return PyRef();
    PyCompilerFlags flags{};
    flags.cf_flags = futureFlags_ | PyCF_IGNORE_COOKIE | PyCF_ALLOW_TOP_LEVEL_AWAIT;
    flags.cf_feature_version = PY_MINOR_VERSION;
    if (mode == Mode::Simple)
        return PyRef(Py_CompileStringObject(utf8, fileName, Py_single_input, &flags, -1));
    flags.cf_flags |= PyCF_ONLY_AST | PyCF_ALLOW_INCOMPLETE_INPUT;
    const DeepTrees deepTrees;
    return PyRef(Py_CompileStringObject(utf8, fileName, Py_file_input, &flags, -1));
}

PyRef CodeRunner::compileTree(PyObject* tree, PyObject* fileName, const char* mode) {
    const DeepTrees deepTrees;
    const int flags = futureFlags_ | PyCF_ALLOW_TOP_LEVEL_AWAIT;
    PyRef code(PyObject_CallFunction(compile_.get(), "OOsii", tree, fileName, mode, flags, 1));
    if (code) futureFlags_ |= reinterpret_cast<PyCodeObject*>(code.get())->co_flags & PyCF_MASK;
    return code;
}

// Runs the statements; a last one that is an expression runs in the mode that displays its value. Nothing
// runs unless all of it can be compiled.
bool CodeRunner::runTree(PyObject* tree, PyObject* source, PyObject* fileName, bool& isSourceWanted) {
    const PyRef body(PyObject_GetAttrString(tree, "body"));
    if (!body) return false;
    const Py_ssize_t count = PyList_GET_SIZE(body.get());
    const bool endsWithExpression =
        count > 0 && Py_IS_TYPE(PyList_GET_ITEM(body.get(), count - 1),
                                reinterpret_cast<PyTypeObject*>(expressionType_.get()));
    PyRef last;
    if (endsWithExpression && !isSilenced(PyList_GET_ITEM(body.get(), count - 1), source)) {
        last = PyRef(PyList_GetSlice(body.get(), count - 1, count));
        if (!last || PyList_SetSlice(body.get(), count - 1, count, nullptr) != 0) return false;
    }
    const PyRef statements = compileTree(tree, fileName, "exec");
    if (!statements) return false;
    if (!last) return runCode(statements.get(), isSourceWanted);

    const PyRef display(PyObject_CallOneArg(interactiveType_.get(), last.get()));
    const PyRef expression = display ? compileTree(display.get(), fileName, "single") : PyRef();
    if (!expression) return false;
    if (count == 1) return runCode(expression.get(), isSourceWanted);
    if (isCoroutine(statements.get()) || isCoroutine(expression.get())) {
        return runInOneLoop(statements.get(), expression.get(), isSourceWanted);
    }
    return runCode(statements.get(), isSourceWanted) && runCode(expression.get(), isSourceWanted);
}

// Where code awaits anywhere, all of it runs in the loop: what comes before may make tasks.
bool CodeRunner::runInOneLoop(PyObject* statements, PyObject* expression, bool& isSourceWanted) {
    isSourceWanted = isSourceWanted || definesFunctions(statements) || definesFunctions(expression);
    beforeRun_();
    const PyRef done(
        PyObject_CallFunctionObjArgs(runInLoop_.get(), statements, expression, globals_, nullptr));
    return static_cast<bool>(done);
}

bool CodeRunner::runCode(PyObject* code, bool& isSourceWanted) {
    isSourceWanted = isSourceWanted || definesFunctions(code);
    beforeRun_();
    const PyRef value(PyEval_EvalCode(code, globals_, globals_));
    if (!value || !isCoroutine(code)) return static_cast<bool>(value);
    const PyRef done(PyObject_CallOneArg(runCoroutine_.get(), value.get()));
    return static_cast<bool>(done);
}

// Takes the error that is set, for takeError.
CodeRunner::Result CodeRunner::failed() {
    PyObject *type = nullptr, *value = nullptr, *trace = nullptr;
    PyErr_Fetch(&type, &value, &trace);
    PyErr_NormalizeException(&type, &value, &trace);
    if (trace != nullptr) PyException_SetTraceback(value, trace);
    Py_XDECREF(type);
    Py_XDECREF(trace);
    error_ = PyRef(value);
    return Result::Failed;
}

}  // namespace standalone
