#define PY_SSIZE_T_CLEAN
#include "python/SourceCache.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "python/pythonText.h"

namespace standalone {

namespace {

constexpr std::size_t keptPieces = 2'000;
constexpr std::size_t keptUnits = 16U << 20U;

// The first line of `rest` without its end, which is cut off with it.
std::u16string_view takeLine(std::u16string_view& rest) {
    const std::size_t length = std::min(rest.find_first_of(u"\r\n"), rest.size());
    const std::u16string_view line = rest.substr(0, length);
    const bool isPair = rest.substr(length).starts_with(u"\r\n");
    rest.remove_prefix(std::min(length + (isPair ? 2 : 1), rest.size()));
    return line;
}

}  // namespace

SourceCache::SourceCache() {
    const PyRef module(PyImport_ImportModule("linecache"));
    cache_ = PyRef(module ? PyObject_GetAttrString(module.get(), "cache") : nullptr);
    if (!cache_ || PyDict_Check(cache_.get()) == 0) {
        PyErr_Clear();
        throw std::runtime_error("Python lacks the cache of the module linecache.");
    }
}

void SourceCache::add(const std::u16string& code, PyObject* fileName) {
    const PyRef lines(PyList_New(0));
    std::u16string line;
    for (std::u16string_view rest = code; lines && !rest.empty();) {
        line.assign(takeLine(rest)).push_back(u'\n');
        const PyRef text(pythonText(line));
        if (!text || PyList_Append(lines.get(), text.get()) != 0) break;
    }
    // Size, time of change (none: the entry is never checked against a file), lines, name.
    const PyRef entry(
        Py_BuildValue("(nOOO)", static_cast<Py_ssize_t>(code.size()), Py_None, lines.get(), fileName));
    if (entry) PyDict_SetItem(cache_.get(), fileName, entry.get());
    PyErr_Clear();
}

void SourceCache::keepOrDrop(const std::u16string& code, PyObject* fileName, bool isWanted) {
    if (!isWanted) {
        drop(fileName);
        return;
    }
    kept_.push_back(Kept{PyRef::share(fileName), code.size()});
    keptSize_ += code.size();
    while (kept_.size() > keptPieces || (keptSize_ > keptUnits && kept_.size() > 1)) {
        keptSize_ -= kept_.front().size;
        drop(kept_.front().fileName.get());
        kept_.pop_front();
    }
}

void SourceCache::drop(PyObject* fileName) {
    if (PyDict_DelItem(cache_.get(), fileName) != 0) PyErr_Clear();
}

}  // namespace standalone
