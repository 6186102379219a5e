#pragma once

#include <cstdint>
#include <string_view>
#include <variant>
#include <vector>

namespace standalone {

/// The elements of a JSON text that is an array of numbers, or of arrays of the same length of such, or of
/// booleans in the same way: what becomes a NumPy array.
struct NumberArray {
    /// Of one kind, in row order. Integers become floats when one of them is no integer; null, which stands
    /// for NaN where a result is written, is NaN.
    std::variant<std::vector<double>, std::vector<std::int64_t>, std::vector<std::uint8_t>> elements;
    std::vector<std::int64_t> shape;  ///< outermost first; not empty
};

/// Reads `json`. Returns false for any other text: malformed, ragged, with another kind of element, an
/// integer beyond 64 bits, or more than 32 dimensions. Threads: any.  Throws: std::bad_alloc.  Source: RFC
/// 8259.
bool readNumberArray(std::string_view json, NumberArray& array);

}  // namespace standalone
