#pragma once

/// Identifiers that nobody can guess.
/// Threads: any.  Throws: std::system_error, when the operating system gives no random bits.

#include <string>
#include <string_view>

namespace connector {

/// 160 random bits as 40 hexadecimal digits.
std::string randomIdentifier();

/// A random UUID, as in RFC 9562: "f81d4fae-7dec-4bd0-a765-00a0c91e6bf6".
std::string randomUuid();

/// `bytes` in hexadecimal digits, two for each.
std::string hexadecimal(std::string_view bytes);

}  // namespace connector
