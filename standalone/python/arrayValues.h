#pragma once

#include "matrix/mxArray.h"
#include "python/pythonText.h"

namespace standalone {

/// The Python value of an array: text of char arrays; a number or boolean of one element, and a list, or a
/// list of lists in row order, of several; a list of a cell array; a dictionary, or lists of them, of a
/// struct array; None of null. Numbers without a fraction are integers. A row is a list like any other, not a
/// list in a list.
///
/// Threads: with the interpreter's lock.
/// Returns: a new reference; null with a Python exception set.
PyObject* pythonValue(const mxArray* array);

/// The array of a Python value, the other way round: lists of numbers or of booleans are rows, lists of such
/// rows of one length matrices, other lists and tuples cell arrays. NumPy's numbers and arrays count as lists
/// of theirs.
///
/// Threads: with the interpreter's lock; runs code of NumPy's alone.
/// Throws: matrix::ArrayException, when there is no array for such a value.
matrix::ArrayPtr arrayOf(PyObject* value);

}  // namespace standalone
