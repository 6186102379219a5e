#pragma once

#include <array>
#include <cstddef>

namespace standalone {

/// The file descriptors 0 to 2 of the process, redirected: 1 and 2 into pipes, 0 to an empty input.
///
/// The program's own log goes on to the standard error that the process had. Where they are pipes of the
/// parent process already, there is no other output, and what is written at the very end is left to the
/// parent.
///
/// Threads: made and put back by one; the rest any.
class RedirectedDescriptors {
public:
    /// `pipes`: as HostOptions::capturePipes; they are closed at the end.
    /// Throws: std::system_error, when pipes cannot be made.
    explicit RedirectedDescriptors(const std::array<int, 2>& pipes);
    /// Closes the pipes and the originals. Call `putBack` first.
    ~RedirectedDescriptors();
    RedirectedDescriptors(const RedirectedDescriptors&) = delete;
    RedirectedDescriptors& operator=(const RedirectedDescriptors&) = delete;

    /// Makes the descriptors again what they were.
    void putBack();

    /// The process's own standard streams: 0 input, 1 output, 2 error.
    int original(int descriptor) const { return originals_.at(static_cast<std::size_t>(descriptor)); }
    /// Where what is written to descriptor 1 (index 0) and 2 (index 1) can be read. Does not block.
    int readEnd(std::size_t index) const { return readEnds_.at(index); }
    bool areOfParent() const { return areOfParent_; }

private:
    void makePipe(int fd);
    void usePipe(int fd, int readEnd);

    const bool areOfParent_;
    std::array<int, 3> originals_{-1, -1, -1};
    std::array<int, 2> readEnds_{-1, -1};
    std::array<int, 2> writeEnds_{-1, -1};
};

}  // namespace standalone
