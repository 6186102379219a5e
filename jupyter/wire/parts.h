#pragma once

/// The parts of a binary frame, found by the offsets at its beginning.
/// Threads: any.  Throws: std::invalid_argument, for offsets that cannot be.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fl/i18n/text.h"

namespace jupyter::wire {

/// Numbers of `bytes` bytes: first how many offsets there are, then these.
template <std::size_t bytes, std::endian order>
struct Numbers {
    static constexpr std::size_t size = bytes;

    static void append(std::string& data, std::uint64_t number) {
        for (std::size_t i = 0; i < bytes; ++i) data.push_back(static_cast<char>(number >> shiftOf(i)));
    }
    static std::uint64_t at(std::string_view data, std::size_t index) {
        std::uint64_t number = 0;
        for (std::size_t i = 0; i < bytes; ++i) {
            number |= std::uint64_t{static_cast<unsigned char>(data[index * bytes + i])} << shiftOf(i);
        }
        return number;
    }
    static std::vector<std::uint64_t> offsetsIn(std::string_view data) {
        constexpr std::size_t most = 10'000;
        const auto count = data.size() < bytes ? 0 : at(data, 0);
        if (count == 0 || count > most || count >= data.size() / bytes) {
            throw std::invalid_argument("A binary message must begin with the number of its offsets.");
        }
        std::vector<std::uint64_t> offsets;
        for (std::size_t i = 1; i <= count; ++i) offsets.push_back(at(data, i));
        return offsets;
    }

private:
    static std::size_t shiftOf(std::size_t i) {
        return 8 * (order == std::endian::little ? i : bytes - 1 - i);
    }
};

/// What lies between each offset and the next, after a head of so many bytes.
inline std::vector<std::string_view> partsBetween(std::string_view data,
                                                  const std::vector<std::uint64_t>& offsets,
                                                  std::size_t headSize) {
    std::vector<std::string_view> parts;
    auto begin = std::uint64_t{headSize};
    for (std::size_t i = 0; i < offsets.size(); ++i) {
        if (offsets[i] < begin || offsets[i] > data.size()) {
            throw std::invalid_argument("The offsets of a binary message must rise, and lie within it.");
        }
        if (i > 0) parts.push_back(data.substr(begin, offsets[i] - begin));
        begin = offsets[i];
    }
    return parts;
}

/// Where no text frame has shown it already.
inline void requireUtf8(std::string_view text) {
    try {
        fl::i18n::to_ustring(text);
    } catch (const fl::i18n::ConversionError&) {
        throw std::invalid_argument("The JSON of a message must be in UTF-8.");
    }
}

}  // namespace jupyter::wire
