#pragma once

#include <cstddef>
#include <string>

namespace dispatch {

/// Bytes from the operating system's source of random bits; 256 at most.
/// Throws: std::system_error, when there are none.
std::string randomBytes(std::size_t count);

/// `bytes` in hexadecimal digits, two for each.
std::string hexadecimal(const std::string& bytes);

/// A random UUID, as in RFC 9562: "f81d4fae-7dec-4bd0-a765-00a0c91e6bf6".  Throws: as randomBytes.
std::string randomUuid();

}  // namespace dispatch
