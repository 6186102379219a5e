#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace app {

/// What the user gave the program cannot be used. The program ends with status 2.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Throws: InputError unless `text` is well-formed UTF-8; it names `what` the text is and the offset of the
/// first byte that is wrong.
void requireUtf8(const std::string& what, std::string_view text);

/// `text`, which ends with a newline.
std::string withFinalNewline(std::string text);

}  // namespace app
