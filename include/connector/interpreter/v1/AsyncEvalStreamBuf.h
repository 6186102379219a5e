#pragma once

#include <atomic>

#include "connector/interpreter/v1/CoalescingTextBuffer.h"
#include "nmutil/io/NMSink.h"

namespace connector::interpreter::v1 {

/// Leads what is written to it to a coalescing buffer, as text of one stream, until it is stopped. It has no
/// put area of its own, and writing to it never fails, except by an exception of the buffer.
///
/// Threads: any.  Owns: borrows the buffer, which outlives it.
class AsyncEvalStreamBuf : public nmutil::io::UnicodeStreamBuf {
public:
    AsyncEvalStreamBuf(CoalescingTextBuffer& buffer, nmutil::io::StreamTypeEnum type)
        : buffer_(buffer), type_(type) {}
    ~AsyncEvalStreamBuf() override = default;

    /// From now on text is swallowed. A write under way on another thread may still get through.
    void stop() { active_ = false; }

protected:
    /// Writes `unit` as text, even the end-of-file value, and returns it.
    int_type overflow(int_type unit) override;
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override;
    /// Nothing: batches leave when they are due, or when the coalescing buffer is flushed.
    int sync() override { return 0; }

private:
    CoalescingTextBuffer& buffer_;
    std::atomic<bool> active_{true};
    const nmutil::io::StreamTypeEnum type_;
};

}  // namespace connector::interpreter::v1
