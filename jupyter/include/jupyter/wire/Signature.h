#pragma once

#include <string>
#include <string_view>

#include "jupyter/Message.h"

namespace jupyter::wire {

/// Signs messages: HMAC-SHA256 over header, parent, metadata and content, as they stand, in hexadecimal
/// digits.
///
/// Threads: every operation from any thread.
class Signature {
public:
    /// An empty key signs nothing and takes everything.  Throws: std::invalid_argument, for a scheme other
    /// than "hmac-sha256".
    Signature(std::string key, std::string_view scheme);

    /// Empty without a key.  Throws: std::runtime_error, when the library cannot.
    std::string of(const Message& message) const;
    /// Compared in constant time.
    bool isOf(const Message& message, std::string_view signature) const;

private:
    const std::string key_;
};

}  // namespace jupyter::wire
