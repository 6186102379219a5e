#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "nmutil/io/NMSink.h"

namespace connector::interpreter {

/// Keeps the newest text that is written to it, in UTF-16 code units, in storage of a fixed size.
///
///     Empty --fits--> Filling --runs past the end--> Wrapped (isTruncated)
///       |                |-------larger than all------> Full (isTruncated)
///       '<----------------------clear()----------------------'
///
/// Threads: one at a time.
class ConnectorCmdWinBuffer : public nmutil::io::UnicodeStreamBuf {
public:
    /// Units: UTF-16 code units.
    static constexpr std::size_t defaultSize = 44000;

    explicit ConnectorCmdWinBuffer(std::size_t size = defaultSize);

    /// The put area and the start of a copy still refer to the storage of its source, as they stand there. A
    /// copy is therefore cleared before anything else is done with it, and while its source lives.
    ConnectorCmdWinBuffer(const ConnectorCmdWinBuffer&) = default;
    ConnectorCmdWinBuffer& operator=(const ConnectorCmdWinBuffer&) = default;
    ~ConnectorCmdWinBuffer() override = default;

    /// The text that was kept, oldest first, with backspaces carried out: a backspace takes away the unit
    /// before it and itself. One at the very beginning stays, and so do those in the two units that follow
    /// one carried out.
    std::u16string getString() const;

    /// Forgets the text. The storage stays.
    void clear();

    /// Whether text was lost since the last clear().
    bool isTruncated() const { return truncated_; }

protected:
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override;
    /// Writes `unit` as text, even the end-of-file value.
    int_type overflow(int_type unit) override;
    int sync() override { return 0; }

private:
    void resetPutArea();
    void append(const char16_t* text, std::size_t count);

    std::vector<char16_t> storage_;
    const char16_t* start_;  // the oldest text begins here
    bool truncated_ = false;
    bool wrapped_ = false;
};

}  // namespace connector::interpreter
