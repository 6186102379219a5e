#include "matrix/mxArray.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace {

using matrix::ArrayException;
using matrix::ArrayPtr;

std::size_t product(const matrix::Dimensions& dimensions) {
    if (std::ranges::find(dimensions, std::size_t{0}) != dimensions.end()) return 0;
    std::size_t count = 1;
    for (const std::size_t size : dimensions) {
        if (size > std::numeric_limits<std::size_t>::max() / count)
            throw ArrayException("An array must not have more elements than can be counted.");
        count *= size;
    }
    return count;
}

bool holds(const mxArray::Content& content, std::size_t elements) {
    const auto matches = [elements](const auto& values) {
        if constexpr (requires { values.names; }) {
            return values.values.size() == values.names.size() * elements;
        } else {
            return values.size() == elements;
        }
    };
    return std::visit(matches, content);
}

template <class Content>
ArrayPtr make(matrix::Dimensions dimensions, Content content) {
    return ArrayPtr(new mxArray(std::move(dimensions), std::move(content)));
}

}  // namespace

mxArray::mxArray(Dimensions dimensions, Content content)
    : dimensions_(std::move(dimensions)), content_(std::move(content)) {
    if (!holds(content_, product(dimensions_))) {
        throw ArrayException("An array's content does not have as many elements as its dimensions say.");
    }
}

std::size_t mxArray::elementCount() const { return product(dimensions_); }

mxArray* mxGetField(mxArray& array, std::size_t index, std::string_view name) {
    matrix::detail::rejectInvalidClassId(array.classId(), mxSTRUCT_CLASS);
    const auto& fields = std::get<mxArray::Fields>(array.content());
    const auto found = std::find(fields.names.begin(), fields.names.end(), name);
    if (found == fields.names.end() || index >= array.elementCount()) return nullptr;
    const auto field = static_cast<std::size_t>(found - fields.names.begin());
    return fields.values[index * fields.names.size() + field].get();
}

const mxArray* mxGetField(const mxArray& array, std::size_t index, std::string_view name) {
    return mxGetField(const_cast<mxArray&>(array), index, name);  // which changes nothing
}

void mxSetCell(mxArray& array, std::size_t index, ArrayPtr value) {
    matrix::detail::rejectInvalidClassId(array.classId(), mxCELL_CLASS);
    auto& cells = std::get<mxArray::Cells>(array.content());
    if (index >= cells.size()) throw ArrayException("The cell array has no element at this index.");
    cells[index] = std::move(value);
}

namespace matrix {

void destroyArray(mxArray* array) { delete array; }

const char* className(mxClassID id) {
    constexpr const char* names[] = {"char", "double", "logical", "cell", "struct"};
    return names[id];
}

ArrayPtr create(std::u16string text) {
    const std::size_t length = text.size();
    return make({1, length}, std::move(text));
}

ArrayPtr create(const char16_t* text, std::size_t length) { return create(std::u16string(text, length)); }

ArrayPtr createScalar(double value) { return make({1, 1}, std::vector<double>(1, value)); }

ArrayPtr createLogical(bool value) { return make({1, 1}, std::vector<bool>(1, value)); }

ArrayPtr createStruct(std::vector<Field> fields) {
    mxArray::Fields content;
    for (Field& field : fields) {
        content.names.push_back(std::move(field.name));
        content.values.push_back(std::move(field.value));
    }
    return make({1, 1}, std::move(content));
}

const std::u16string& get_ustring(const mxArray& array) {
    detail::rejectInvalidClassId(array.classId(), mxCHAR_CLASS);
    return std::get<std::u16string>(array.content());
}

std::u16string take_ustring(mxArray& array) {
    detail::rejectInvalidClassId(array.classId(), mxCHAR_CLASS);
    return std::move(std::get<std::u16string>(array.content()));
}

double get_scalar(const mxArray& array) {
    detail::rejectInvalidClassId(array.classId(), mxDOUBLE_CLASS);
    detail::rejectArrayShape(array, 1);
    return std::get<std::vector<double>>(array.content()).front();
}

bool get_logical(const mxArray& array) {
    detail::rejectInvalidClassId(array.classId(), mxLOGICAL_CLASS);
    detail::rejectArrayShape(array, 1);
    return std::get<std::vector<bool>>(array.content()).front();
}

namespace detail {

void rejectInvalidClassId(mxClassID id, mxClassID wanted) {
    if (id == wanted) return;
    throw ArrayException(std::string("The array is ") + className(id) + ", not " + className(wanted) + ".");
}

void rejectArrayShape(const mxArray& array, std::size_t elements) {
    if (array.elementCount() == elements) return;
    throw ArrayException("The array has " + std::to_string(array.elementCount()) + " elements, not " +
                         std::to_string(elements) + ".");
}

ArrayPtr do_create_uninitnumeric(Dimensions dimensions, mxClassID id, mxComplexity complexity) {
    rejectInvalidClassId(id, mxDOUBLE_CLASS);
    if (complexity != mxREAL) throw ArrayException("Arrays of complex numbers are not supported.");
    const std::size_t elements = product(dimensions);
    return make(std::move(dimensions), std::vector<double>(elements));
}

ArrayPtr do_create_cell(Dimensions dimensions) {
    const std::size_t elements = product(dimensions);
    return make(std::move(dimensions), mxArray::Cells(elements));
}

}  // namespace detail

}  // namespace matrix
