#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "matrix/mxArray.h"

namespace nmutil::cmddistributor {

using DataArrays = std::vector<foundation::numoradata::Array>;

/// Ends a pointer to one of several arrays: the arrays go with the last such pointer.
struct DataArraysDeleter {
    std::shared_ptr<const DataArrays> arrays;
    void operator()(const foundation::numoradata::Array*) noexcept { arrays.reset(); }
};

/// Owns the arrays that belong to one request, and gives out pointers that keep them. Copies share the
/// arrays, which nobody changes.  Threads: any.
class EDIDataWrapper {
public:
    explicit EDIDataWrapper(DataArrays arrays)
        : arrays_(std::make_shared<const DataArrays>(std::move(arrays))) {}

    std::size_t size() const { return arrays_->size(); }
    /// Throws: std::out_of_range.
    const foundation::numoradata::Array& at(std::size_t index) const { return arrays_->at(index); }
    /// The same for as long as the pointer lives, for which the wrapper need not.
    std::shared_ptr<const foundation::numoradata::Array> share(std::size_t index) const {
        return {&arrays_->at(index), DataArraysDeleter{arrays_}};
    }

private:
    std::shared_ptr<const DataArrays> arrays_;
};

namespace detail {

/// Checks two arrays that belong together, such as the results of one call.
/// Throws: matrix::ArrayException, when one of them is null, is not of the class `type` or is not `rows` by
/// `columns`.
void verifyMxArrayTypeAndSize(const mxArray* first, const mxArray* second, mxClassID type, std::size_t rows,
                              std::size_t columns);

/// Throws: matrix::ArrayException, when `count` outputs are fewer than `minimum`.
void verifyMinimumOutputSize(std::size_t count, std::size_t minimum);

}  // namespace detail

}  // namespace nmutil::cmddistributor
