#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string_view>

#include "nmutil/io/NMSink.h"
#include "nmutil/prompt/InputRequester.h"
#include "output/Announcements.h"
#include "output/RunningRequests.h"
#include "python/errorReport.h"
#include "services/io/CmdWinSink.h"

namespace standalone {

class HostObserver;
class NativeCapture;
class TerminalWindow;

/// In characters.
struct WindowSize {
    std::uint64_t columns = 80;
    std::uint64_t rows = 24;
    bool operator==(const WindowSize&) const = default;
};

/// The command window of the running code: who gets what it prints, its errors, and what it does to the
/// window.
///
/// A request with sinks of its own has all it prints there. Other code prints into the window that captures,
/// while somebody waits for what is in there; else into the terminal's, and those who watch are told.
///
/// Threads: those that hold the interpreter's lock; input, the size, and what opens and closes it on the
/// interpreter thread; `originalDescriptor` on any.
class CommandWindow {
public:
    CommandWindow(const RunningRequests& running, Announcements& announcements, WindowSize size);
    ~CommandWindow();
    CommandWindow(const CommandWindow&) = delete;
    CommandWindow& operator=(const CommandWindow&) = delete;

    /// How what native code writes is captured: as HostOptions says.
    struct Capture {
        bool isCapturing = true;
        std::array<int, 2> pipes{-1, -1};
        HostObserver* observer = nullptr;
    };
    /// Makes the terminal's window the active one, and has what native code writes from now on captured, to
    /// be delivered after `startCapture`. Before CPython starts. Throws: std::system_error.
    void open(const Capture& capture);
    void startCapture();
    /// Delivers what is left, and puts the descriptors back.
    void stopCapture();
    /// Forgets all windows. The process's own descriptors stay, for the sake of what the program still
    /// prints.
    void close();
    /// The process's own standard descriptor, beside the captured one.
    int originalDescriptor(int descriptor) const;

    WindowSize size() const { return size_; }
    /// A size that no window has is ignored.
    void setRows(std::uint64_t rows) { size_.rows = isValid(rows) ? rows : size_.rows; }
    void setColumns(std::uint64_t columns) { size_.columns = isValid(columns) ? columns : size_.columns; }

    void print(nmutil::io::StreamTypeEnum stream, std::u16string_view text);
    /// Delivers what native code has written. At the `isEnd` of an evaluation, what looks like the beginning
    /// of a character stands for itself.
    void drain(bool isEnd = false);
    /// The same, where that is cheap to find out; C's buffers are left alone. What there is comes in parts;
    /// `afterPart` is called after each. False when that has been, which leaves the rest.
    bool drainIfReady(const std::function<bool()>& afterPart);
    /// Delivers it, and has the sinks of the request send what they have kept.
    void sendPrinted();
    /// Has them send it, but for what native code has written, unless they have just done so: no more often
    /// than every 10 ms.
    void flush();

    /// What the code does to the window of whoever gets its text.
    void clear();
    void moveHome();

    /// Shows an error once: to the request's own callback if it has one, else in the window and, unless that
    /// captures, as an event. While the interpreter `isStopping`, it is no news that code still waits.
    void showError(const cmddistributor::RuntimeException& error, bool isStopping);
    /// Shows how a piece of code failed, with its suggestion.
    void showFailure(const CodeError& failure, bool isStopping);
    /// Tells the evaluation that an interrupt has reached its code, whether that goes on or not.
    void notifyInterrupted();

    /// Answers whoever waits for the code that waits at `prompt` now.
    void requestInput(nmutil::prompt::InputRequester prompt);
    /// What was typed last came from a client that captures, or from one that streams.
    void noteTyping();
    void forgetTyping() { isTypedByStream_ = false; }

private:
    enum class Recipient { OwnSink, Capture, Terminal };
    Recipient recipient() const;
    bool isCaptured() const;
    void sync();
    std::shared_ptr<services::io::CmdWinSink> window(bool isError) const;
    template <class Event>
    void change(void (services::io::CmdWinSink::*change)());

    static bool isValid(std::uint64_t size) { return size >= 1 && size <= 100'000; }

    const RunningRequests& running_;
    Announcements& announcements_;
    WindowSize size_;
    std::unique_ptr<NativeCapture> capture_;
    std::shared_ptr<TerminalWindow> terminal_;
    std::chrono::steady_clock::time_point lastFlush_;
    bool isTypedByStream_ = false;  // what the running code read last
};

/// Logs that a result was dropped: whoever waited for it has given up and was answered otherwise.
void logLateResult(const std::exception& error);

}  // namespace standalone
