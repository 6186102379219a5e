#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "foundation/core/except.h"

/// What the elements of an array are. The order is that of the alternatives of mxArray::Content.
enum mxClassID : std::uint32_t {
    mxCHAR_CLASS = 0,
    mxDOUBLE_CLASS = 1,
    mxLOGICAL_CLASS = 2,
    mxCELL_CLASS = 3,
    mxSTRUCT_CLASS = 4,
};

enum mxComplexity : std::uint32_t { mxREAL = 0, mxCOMPLEX = 1 };

class mxArray;

namespace matrix {

using Dimensions = std::vector<std::size_t>;

/// Ends an array; null does nothing.
void destroyArray(mxArray* array);

struct ArrayDestroyer {
    void operator()(mxArray* array) const { destroyArray(array); }
};

/// Owns one array. A function that takes one takes the array, whatever its size, without a copy.
using ArrayPtr = std::unique_ptr<mxArray, ArrayDestroyer>;

/// An array is not of the class or the shape that was asked for.
class ArrayException : public foundation::core::except::IException {
public:
    using IException::IException;
};

}  // namespace matrix

/// One array of the interpreter: what is passed to a function and what comes back.
///
/// A char array holds UTF-16 text, with as many elements as code units. A null pointer among the values of a
/// cell or struct array stands for an empty double array.
///
/// Threads: one at a time; several while none changes it.
class mxArray {
public:
    using Dimensions = matrix::Dimensions;
    using Cells = std::vector<matrix::ArrayPtr>;
    struct Fields {
        std::vector<std::string> names;
        Cells values;  ///< the fields of the first element in the order of the names, then the next element's
    };
    using Content = std::variant<std::u16string, std::vector<double>, std::vector<bool>, Cells, Fields>;

    /// Elements are in column-major order.
    /// Throws: matrix::ArrayException, when the content has not as many elements as the dimensions say.
    mxArray(Dimensions dimensions, Content content);

    mxClassID classId() const { return static_cast<mxClassID>(content_.index()); }
    const Dimensions& dimensions() const { return dimensions_; }
    std::size_t elementCount() const;

    const Content& content() const { return content_; }
    /// To change elements. Their number stays, except that what is moved out of an array that is given up may
    /// be missing from it.
    Content& content() { return content_; }

private:
    Dimensions dimensions_;
    Content content_;
};

/// The field `name` of the element at `index` of a struct array, or null when there is none.
/// Throws: matrix::ArrayException, when `array` is no struct array.
const mxArray* mxGetField(const mxArray& array, std::size_t index, std::string_view name);
mxArray* mxGetField(mxArray& array, std::size_t index, std::string_view name);

/// Puts `value` into a cell array.
/// Throws: matrix::ArrayException, when `array` is no cell array or has no element at `index`.
void mxSetCell(mxArray& array, std::size_t index, matrix::ArrayPtr value);

namespace matrix {

/// "char", "double", "logical", "cell" or "struct".
const char* className(mxClassID id);

/// A row of characters. The first form takes the text without a copy.
ArrayPtr create(std::u16string text);
ArrayPtr create(const char16_t* text, std::size_t length);

/// One element.
ArrayPtr createScalar(double value);
ArrayPtr createLogical(bool value);

struct Field {
    std::string name;
    ArrayPtr value;
};
/// One struct with these fields.
ArrayPtr createStruct(std::vector<Field> fields);

/// The text of a char array, borrowed from it.
/// Throws: ArrayException, when it is of another class.
const std::u16string& get_ustring(const mxArray& array);
/// The text, moved out of an array that is given up.
/// Throws: as get_ustring.
std::u16string take_ustring(mxArray& array);

/// The one element of an array.
/// Throws: ArrayException, when it is of another class or has another number of elements.
double get_scalar(const mxArray& array);
bool get_logical(const mxArray& array);

namespace detail {

/// Throws: ArrayException, when `id` is not `wanted`.
void rejectInvalidClassId(mxClassID id, mxClassID wanted);
/// Throws: ArrayException, when `array` has not `elements` elements.
void rejectArrayShape(const mxArray& array, std::size_t elements);

/// An array of numbers that the caller fills.
/// Throws: ArrayException, when `id` is not mxDOUBLE_CLASS or `complexity` not mxREAL, the numbers that there
/// are.
ArrayPtr do_create_uninitnumeric(Dimensions dimensions, mxClassID id, mxComplexity complexity);
/// A cell array whose elements are null.
ArrayPtr do_create_cell(Dimensions dimensions);

}  // namespace detail

}  // namespace matrix

namespace foundation::numoradata {

/// The name of an interpreter array among the host's data types.
using Array = ::mxArray;

}  // namespace foundation::numoradata
