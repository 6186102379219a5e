#include "output/TerminalWindow.h"

#include <cerrno>
#include <streambuf>
#include <string_view>
#include <utility>

#include <poll.h>
#include <unistd.h>

#include "fl/i18n/text.h"

namespace standalone {

namespace {

constexpr int writeTimeoutMs = 1'000;

// Gives up on a reader that takes nothing for a second, so that nobody can stop the interpreter by not
// reading.
void writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        pollfd ready{descriptor, POLLOUT, 0};
        if (poll(&ready, 1, writeTimeoutMs) == 0) return;
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR && errno != EAGAIN) return;
        if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

class DescriptorBuffer : public nmutil::io::UnicodeStreamBuf {
public:
    explicit DescriptorBuffer(int descriptor) : descriptor_(descriptor) {}

protected:
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override {
        writeAll(descriptor_, fl::i18n::to_string({text, static_cast<std::size_t>(count)}));
        return count;
    }
    int_type overflow(int_type unit) override {
        const auto text = static_cast<char16_t>(unit);
        xsputn(&text, 1);
        return unit;
    }

private:
    const int descriptor_;
};

class TerminalSink : public services::io::CmdWinSink {
public:
    explicit TerminalSink(int descriptor)
        : CmdWinSink(std::make_shared<DescriptorBuffer>(descriptor)), isTerminal_(isatty(descriptor) != 0) {}

    void doClc() override { control(u"\x1b[2J\x1b[H"); }
    void doHome() override { control(u"\x1b[H"); }
    void doPrintableError(std::u16string&& text) override { print(text); }

private:
    void control(std::u16string_view sequence) {
        if (isTerminal_) print(sequence);
    }
    void print(std::u16string_view text) {
        getUnicodeOutStreamBuffer()->sputn(text.data(), static_cast<std::streamsize>(text.size()));
    }

    const bool isTerminal_;
};

}  // namespace

TerminalWindow::TerminalWindow(int outDescriptor, int errDescriptor)
    : out_(std::make_shared<TerminalSink>(outDescriptor)),
      err_(std::make_shared<TerminalSink>(errDescriptor)) {}

}  // namespace standalone
