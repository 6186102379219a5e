#pragma once

#include <atomic>
#include <cstddef>

#include "connector/interpreter/v1/AsyncEvalStreamBuf.h"

namespace connector::interpreter::v1 {

/// Flushes the coalescing buffer when much has been written to it, so that code that prints fast leads to
/// many batches of bounded size, which are on their way while it prints, and not to few huge ones.
///
/// Threads: any.  Blocks: while a batch is published.
class FlushingStreamBuf : public AsyncEvalStreamBuf {
public:
    FlushingStreamBuf(CoalescingTextBuffer& buffer, nmutil::io::StreamTypeEnum type)
        : AsyncEvalStreamBuf(buffer, type), buffer_(buffer) {}

protected:
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override {
        const auto written = AsyncEvalStreamBuf::xsputn(text, count);
        if (written > 0 && (sinceFlush_ += static_cast<std::size_t>(written)) >= enough) {
            sinceFlush_ = 0;
            buffer_.flush();
        }
        return written;
    }

private:
    static constexpr std::size_t enough = std::size_t{1} << 20;  // UTF-16 code units

    CoalescingTextBuffer& buffer_;
    std::atomic<std::size_t> sinceFlush_{0};
};

}  // namespace connector::interpreter::v1
