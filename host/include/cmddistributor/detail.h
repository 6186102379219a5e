#pragma once

#include <cstdint>
#include <string>
#include <typeinfo>
#include <vector>

#include "foundation/core/diag.h"
#include "matrix/mxArray.h"

/// Arrays as bytes, for requests that run in another process, and vectors of arrays that are held by plain
/// pointers.
///
/// Threads: any, one at a time for the same arrays.
namespace cmddistributor::detail {

using Bytes = std::vector<std::uint8_t>;

/// The bytes of each array; null, here and within arrays, is kept.
/// Throws: matrix::ArrayException, when cell or struct arrays are nested deeper than 200.
std::vector<Bytes> serializeMxArrays(const std::vector<const mxArray*>& arrays);

/// The arrays again. What is built takes a small multiple of the memory of the bytes, whatever they say.
/// Throws: matrix::ArrayException, when bytes are not those of an array.
std::vector<matrix::ArrayPtr> deserializeMxArrays(const std::vector<Bytes>& serialized);

/// Destroys the arrays, of which some may be null, and empties the vector.
void nullSafeMxVecDestroy(std::vector<mxArray*>& arrays);
void nullSafeMxConstVecDestroy(std::vector<const mxArray*>& arrays);

/// The readable name of a type, for messages.  Threads: any.
inline std::string demangle(const std::type_info& type) {
    return foundation::core::diag::detail::demangle_typeid_name(type.name());
}

}  // namespace cmddistributor::detail
