#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace links {

/// Size of a black box: a file in memory to which a worker writes what it is doing, and which outlives it.
inline constexpr std::size_t blackBoxBytes = std::size_t{128} << 10;

/// What a process has left behind. The process may have written anything: the texts are bytes of whatever
/// encoding.
struct LastWords {
    std::string type;    ///< of the request under way; empty: none
    std::string uuid;    ///< of that request
    std::string code;    ///< its first 4 KiB
    std::string output;  ///< the last 48 KiB at most of what was printed
};

/// A new, empty black box that cannot be shrunk or grown; close-on-exec. The caller owns the descriptor.
/// Throws: std::system_error.
int createBlackBox();

/// Reads with pread() only, so that a box which was shrunk or scribbled over does no harm; what cannot be
/// made sense of is empty.  Throws: std::bad_alloc only.
LastWords readBlackBox(int fd);

/// The worker's side. What is written survives the process at any point of it: data is stored first, where
/// the reader does not look yet, and the counter that tells the reader of it last. There is no lock, no
/// allocation and no system call, so it may be used in a signal handler, but not in one that has interrupted
/// the same.
///
/// Threads: requests by one thread at a time, output by one thread at a time; the interpreter's lock sees to
/// both.
class BlackBox {
public:
    /// Maps the box; `fd` can be closed afterwards.  Throws: std::system_error.
    explicit BlackBox(int fd);
    ~BlackBox();
    BlackBox(const BlackBox&) = delete;
    BlackBox& operator=(const BlackBox&) = delete;

    /// The request under way. Kept are 256 bytes of `type`, 128 of `uuid` and 4 KiB of `code`, no character
    /// cut.
    void setRequest(std::string_view type, std::string_view uuid, std::string_view code) noexcept;
    void clearRequest() noexcept;

    /// Text that was printed, in UTF-8.
    void addOutput(std::string_view text) noexcept;

private:
    struct Layout;
    Layout* layout_;
};

}  // namespace links
