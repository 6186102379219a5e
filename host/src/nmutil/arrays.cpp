#include "nmutil/cmddistributor/arrays.h"

#include <string>

namespace nmutil::cmddistributor::detail {

namespace {

std::string describe(mxClassID type, const matrix::Dimensions& dimensions) {
    std::string size;
    for (const std::size_t dimension : dimensions)
        size += (size.empty() ? "" : "x") + std::to_string(dimension);
    return size + ' ' + matrix::className(type) + " array";
}

}  // namespace

void verifyMxArrayTypeAndSize(const mxArray* first, const mxArray* second, mxClassID type, std::size_t rows,
                              std::size_t columns) {
    const matrix::Dimensions wanted{rows, columns};
    for (const mxArray* array : {first, second}) {
        if (array != nullptr && array->classId() == type && array->dimensions() == wanted) continue;
        throw matrix::ArrayException(
            "expected a " + describe(type, wanted) + ", found " +
            (array != nullptr ? "a " + describe(array->classId(), array->dimensions()) : "none"));
    }
}

void verifyMinimumOutputSize(std::size_t count, std::size_t minimum) {
    if (count >= minimum) return;
    throw matrix::ArrayException("expected at least " + std::to_string(minimum) + " outputs, found " +
                                 std::to_string(count));
}

}  // namespace nmutil::cmddistributor::detail
