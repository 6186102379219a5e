#pragma once

#include <string>
#include <string_view>

namespace gateway::access {

/// A new token: 160 random bits of the operating system's.  Throws: std::system_error.
std::string makeToken();

/// What is wrong with a token that a person has chosen, so that it can stand in a URL, a header and a cookie
/// as it is; empty for a good one.
std::string tokenProblem(std::string_view token);

/// A key that shows knowledge of `secret` for one purpose, and which does not give the secret away: 64
/// hexadecimal digits.
std::string derivedKey(std::string_view secret, std::string_view purpose);

/// The SHA-256 of a text: 64 hexadecimal digits, in small letters.
std::string digestOf(std::string_view text);

/// Compares in a time that depends on the length of the texts alone.
bool isSameSecret(std::string_view one, std::string_view other) noexcept;

}  // namespace gateway::access
