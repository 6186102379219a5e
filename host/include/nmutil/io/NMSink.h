#pragma once

#include <cstdint>
#include <memory>
#include <streambuf>
#include <utility>

namespace nmutil::io {

/// The stream that a piece of text was printed on. 0 is standard output, any other value standard error.
enum StreamTypeEnum : std::uint32_t {
    STANDARD_OUTPUT = 0,
    STANDARD_ERROR = 1,
};

/// What a sink that is made from a bare stream buffer supports.
struct SinkTraits {
    bool supportsMore = false;
    bool supportsHotlinks = false;
};

/// A stream buffer of UTF-16 code units. Text between this system and the interpreter goes through one.
using UnicodeStreamBuf = std::basic_streambuf<char16_t>;

/// A destination of interpreter text.
///
/// Threads: the interpreter thread, or any thread that holds the interpreter's lock.
class NMSink {
public:
    /// Owns: shares `buffer`, which must not be null.
    explicit NMSink(std::shared_ptr<UnicodeStreamBuf> buffer, SinkTraits traits = {})
        : buffer_(std::move(buffer)), traits_(traits) {}

    /// Called when text starts, or stops, going here. The base does nothing.
    virtual void activate() {}
    virtual void deactivate() {}

    /// A dirty sink has shown text since the last prompt, so that a prompt has to be shown again.
    virtual bool isDirty() const { return dirty_; }
    virtual void setDirty(bool dirty) { dirty_ = dirty; }

    // What a host asks that shows output page by page, with links or formatted, or that keeps a diary, an
    // echo of the code or a log of the output. The standalone host does none of that, and asks none of these.
    virtual bool supportsMore() const { return traits_.supportsMore; }
    virtual bool supportsHotlinks() const { return traits_.supportsHotlinks; }
    virtual bool needsFormattingForDisplay() const { return true; }
    virtual bool useDiary() const { return false; }
    virtual bool useEcho() const { return false; }
    virtual bool useLogging() const { return false; }

    virtual ~NMSink() = default;
    NMSink(const NMSink&) = delete;
    NMSink& operator=(const NMSink&) = delete;

    /// A buffer for narrow text, or null where the sink takes UTF-16 alone, as the base does.
    virtual std::shared_ptr<std::streambuf> getOutStreamBuffer() const { return nullptr; }
    virtual const std::shared_ptr<UnicodeStreamBuf>& getUnicodeOutStreamBuffer() const { return buffer_; }

private:
    const std::shared_ptr<UnicodeStreamBuf> buffer_;
    const SinkTraits traits_;
    bool dirty_ = false;
};

}  // namespace nmutil::io
