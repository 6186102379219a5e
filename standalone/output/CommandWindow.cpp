#include "output/CommandWindow.h"

#include <chrono>
#include <string>
#include <utility>

#include "foundation/log/diagnostic_logger.h"
#include "nmutil/events.h"
#include "output/NativeCapture.h"
#include "output/TerminalWindow.h"
#include "output/ownerWait.h"

namespace standalone {

using services::io::CmdWinSink;
using services::io::CmdWinSinkHandle;

namespace {

constexpr auto longestDrain = std::chrono::seconds(2);
constexpr auto flushInterval = std::chrono::milliseconds(10);

}  // namespace

void logLateResult(const std::exception& error) {
    foundation::log::DiagnosticLogger("standalone::interpreter")
        .warning("The late result of an evaluation was dropped: " + std::string(error.what()));
}

CommandWindow::CommandWindow(const RunningRequests& running, Announcements& announcements, WindowSize size)
    : running_(running), announcements_(announcements), size_(size) {}

CommandWindow::~CommandWindow() = default;

void CommandWindow::open(const Capture& capture) {
    if (capture.isCapturing) {
        capture_ = std::make_unique<NativeCapture>(
            [this](auto stream, auto text) {
                const KeepsInterpreterLock kept;
                print(stream, text);
            },
            withInterpreterLock, [this] { return running_.paceOfOutermost(); }, capture.pipes,
            capture.observer);
    }
    terminal_ = std::make_shared<TerminalWindow>(originalDescriptor(1), originalDescriptor(2));
    CmdWinSinkHandle::setFactory(terminal_);
}

void CommandWindow::startCapture() {
    if (capture_) capture_->start();
}

void CommandWindow::stopCapture() {
    if (!capture_) return;
    drain(true);
    withoutInterpreterLock([this] { capture_->stop(); });
}

void CommandWindow::close() { CmdWinSinkHandle::reset(); }

int CommandWindow::originalDescriptor(int descriptor) const {
    return capture_ ? capture_->original(descriptor) : descriptor;
}

CommandWindow::Recipient CommandWindow::recipient() const {
    const RunningRequest* request = running_.ofThisThread();
    if (request != nullptr && request->options.getOutSink()) return Recipient::OwnSink;
    return isCaptured() ? Recipient::Capture : Recipient::Terminal;
}

// What nobody waits for in a captured window is kept for who answers the next prompt, unless a stream has
// answered the last one: then it is for those who watch the terminal's.
bool CommandWindow::isCaptured() const {
    if (running_.isLateThreadOfStream()) return false;
    const auto& active = CmdWinSinkHandle::activeSink(false);
    return active != terminal_->getSink(false) && (active->isWaitedFor() || !isTypedByStream_);
}

std::shared_ptr<CmdWinSink> CommandWindow::window(bool isError) const {
    return recipient() == Recipient::Capture ? CmdWinSinkHandle::activeSink(isError)
                                             : terminal_->getSink(isError);
}

void CommandWindow::print(nmutil::io::StreamTypeEnum stream, std::u16string_view text) {
    const bool isError = stream != nmutil::io::STANDARD_OUTPUT;
    // Held here, because a sink may release the lock, and the request end meanwhile.
    const auto write = [text](auto sink) {
        sink->getUnicodeOutStreamBuffer()->sputn(text.data(), static_cast<std::streamsize>(text.size()));
    };
    if (const RunningRequest* request = running_.ofThisThread()) {
        // Of native code, which may be late: whoever takes the rest is called by Python code alone.
        if (request->printedTaker) return announcements_.announceText(stream, text, false);
        const auto& options = request->options;
        const auto& sink = isError && options.getErrSink() ? options.getErrSink() : options.getOutSink();
        if (sink) return write(sink);
    }
    // A window that captures takes standard error in the order printed; only the terminal tells them apart.
    if (isCaptured()) return write(CmdWinSinkHandle::activeSink(false));
    write(terminal_->getSink(isError));
    announcements_.announceText(stream, text);
}

// Not for long: no code runs that interrupts could end.
void CommandWindow::drain(bool isEnd) {
    if (!capture_) return;
    const auto end = std::chrono::steady_clock::now() + longestDrain;
    capture_->drain(isEnd, [this, end] {
        waitForOwner(running_.paceOfThisThread(), [end] { return std::chrono::steady_clock::now() < end; });
        return true;
    });
}

bool CommandWindow::drainIfReady(const std::function<bool()>& afterPart) {
    return !capture_ || capture_->drainIfReady(afterPart);
}

void CommandWindow::sendPrinted() {
    if (!running_.isBetweenStepsHere()) drain();
    sync();
}

void CommandWindow::flush() {
    const auto now = std::chrono::steady_clock::now();
    if (now - lastFlush_ < flushInterval) return;
    lastFlush_ = now;
    sync();
}

void CommandWindow::sync() {
    const RunningRequest* const request = running_.ofThisThread();
    if (request == nullptr) return;
    // Held here, as for `print`.
    const auto out = request->options.getOutSink(), err = request->options.getErrSink();
    if (out) out->getUnicodeOutStreamBuffer()->pubsync();
    if (err) err->getUnicodeOutStreamBuffer()->pubsync();
}

// What runs between two steps of other code has no say in that code's window.
template <class Event>
void CommandWindow::change(void (CmdWinSink::*change)()) {
    if (running_.isBetweenStepsHere()) return;
    drain();
    const Recipient to = recipient();
    if (to != Recipient::OwnSink) (*window(false).*change)();
    if (to != Recipient::Capture) announcements_.raise(Event());
}

void CommandWindow::clear() { change<nmutil::io::CLCEvent>(&CmdWinSink::doClc); }
void CommandWindow::moveHome() { change<nmutil::io::HomeEvent>(&CmdWinSink::doHome); }

// The callback of a request that was captured and is answered has nobody to tell.
void CommandWindow::showError(const cmddistributor::RuntimeException& error, bool isStopping) {
    const nmutil::io::PrintableErrorEvent event(error.getText(), error);
    const bool isAnswered =
        recipient() == Recipient::Terminal && !CmdWinSinkHandle::activeSink(true)->isWaitedFor();
    if (isAnswered && isStopping) return;
    const RunningRequest* request = running_.innermost();
    if (!isAnswered && request != nullptr && request->options.printableErrorCallback()) {
        request->options.printableErrorCallback()(event);
        return;
    }
    window(true)->doPrintableError(std::u16string(error.getText()));
    if (recipient() != Recipient::Capture) announcements_.raise(event);
}

// A suggestion for captured code becomes part of its response, and is no news to others.
void CommandWindow::showFailure(const CodeError& failure, bool isStopping) {
    if (failure.exception.getExecutionStatus() == nmutil::cmddistributor::EXECUTION_INTERRUPTED) {
        window(false)->ctrlCProcessed();
    }
    showError(failure.exception, isStopping);
    if (!failure.suggestion) return;
    const bool isCaptured = recipient() == Recipient::Capture;
    announcements_.raise(
        numora::lang::correction::SuggestionEvent(*failure.suggestion, isCaptured, !isCaptured));
}

// A call has no capture level.
void CommandWindow::notifyInterrupted() {
    if (recipient() == Recipient::Capture && !running_.isBetweenSteps()) {
        CmdWinSinkHandle::activeSink(false)->ctrlCProcessed();
    }
}

// Called while code is about to wait, which what becomes of its clients does not concern.
void CommandWindow::requestInput(nmutil::prompt::InputRequester prompt) {
    const auto& sink = CmdWinSinkHandle::activeSink(false);
    if (prompt == nmutil::prompt::PAUSE_PROMPT) sink->keyStrokeRequested(prompt);
    try {
        sink->requestInput();
    } catch (const std::exception& error) {
        logLateResult(error);
    }
    sink->setDirty(false);
}

// A capture level is open for whoever does not stream.
void CommandWindow::noteTyping() { isTypedByStream_ = !CmdWinSinkHandle::activeSink(false)->isWaitedFor(); }

}  // namespace standalone
