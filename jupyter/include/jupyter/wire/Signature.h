#pragma once

#include <memory>
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
    /// than "hmac-sha256"; std::runtime_error, when the library cannot.
    Signature(std::string_view key, std::string_view scheme);

    /// Empty without a key.  Throws: std::runtime_error, when the library cannot.
    std::string of(const Message& message) const;
    /// Compared in constant time.
    bool isOf(const Message& message, std::string_view signature) const;
    bool hasKey() const { return keyed_ != nullptr; }

private:
    /// A computation that has been given the key, which is copied for each message; null without a key.
    std::shared_ptr<void> keyed_;
};

}  // namespace jupyter::wire
