#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace app {

/// Whoever read what the program writes has gone. The program ends quietly.
class ClosedPipe : public std::exception {};

/// Writes all of `text` to a file descriptor.
/// Blocks: until it is written.  Throws: ClosedPipe; std::system_error for any other failure.
void writeAll(int descriptor, std::string_view text);

/// Writes `message` with the program's name in front as one line. Failures are ignored: there is no other
/// place to report them.
void printError(int descriptor, const std::string& message) noexcept;

/// All that can be read from a file descriptor.  Throws: std::system_error.
std::string readAll(int descriptor);

/// Reads up to `size` bytes; 0 at the end.  Throws: std::system_error.
std::size_t readSome(int descriptor, char* buffer, std::size_t size);

/// Whether a terminal shows what is typed; it does again when this ends. Anything else is left alone.
class Echo {
public:
    explicit Echo(int descriptor) : descriptor_(descriptor) {}
    ~Echo() { set(true); }
    Echo(const Echo&) = delete;
    Echo& operator=(const Echo&) = delete;

    /// The newline is shown in any case.
    void set(bool isOn);

private:
    const int descriptor_;
    bool isOn_ = true;
};

struct WindowSize {
    int columns = 80;
    int rows = 24;
};

/// The size of the terminal at a file descriptor, or the default where there is none.
WindowSize windowSize(int descriptor);

}  // namespace app
