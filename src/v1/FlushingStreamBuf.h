#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>

#include "connector/common/ContextState.h"
#include "connector/interpreter/v1/AsyncEvalStreamBuf.h"

namespace connector::interpreter::v1 {

/// The stream of one request: what is written to it, by whichever thread, is the request's. It flushes the
/// coalescing buffer when much has been written, so that code that prints fast leads to many batches of
/// bounded size, which are on their way while it prints, and not to few huge ones; and when it is synced, so
/// that what is published next comes after the text.
///
/// Threads: any.  Blocks: while a batch is published.
class FlushingStreamBuf : public AsyncEvalStreamBuf {
public:
    FlushingStreamBuf(CoalescingTextBuffer& buffer, nmutil::io::StreamTypeEnum type,
                      std::shared_ptr<common::ContextState> context)
        : AsyncEvalStreamBuf(buffer, type), buffer_(buffer), context_(std::move(context)) {}

protected:
    int_type overflow(int_type unit) override {
        const common::CurrentContext current(context_);
        return AsyncEvalStreamBuf::overflow(unit);
    }
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override {
        const common::CurrentContext current(context_);
        const auto written = AsyncEvalStreamBuf::xsputn(text, count);
        if (written > 0 && (sinceFlush_ += static_cast<std::size_t>(written)) >= enough) {
            sinceFlush_ = 0;
            buffer_.flush();
        }
        return written;
    }
    int sync() override {
        sinceFlush_ = 0;
        buffer_.flush();
        return 0;
    }

private:
    static constexpr std::size_t enough = std::size_t{1} << 20;  // UTF-16 code units

    CoalescingTextBuffer& buffer_;
    const std::shared_ptr<common::ContextState> context_;
    std::atomic<std::size_t> sinceFlush_{0};
};

}  // namespace connector::interpreter::v1
