#pragma once

#include <concepts>
#include <cstddef>

namespace links {

template <std::unsigned_integral T>
void putLittleEndian(char* to, T value) {
    for (std::size_t i = 0; i < sizeof(T); ++i) to[i] = static_cast<char>(value >> (8 * i));
}

template <std::unsigned_integral T>
T getLittleEndian(const char* from) {
    T value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        value = static_cast<T>(
            value | static_cast<T>(static_cast<T>(static_cast<unsigned char>(from[i])) << (8 * i)));
    }
    return value;
}

}  // namespace links
