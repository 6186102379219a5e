#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <string_view>

namespace foundation::log {

enum class Severity { Debug, Info, Warning, Error };

/// A named logger. All loggers write into one process-wide log, which is off below its level.
///
/// Threads: every operation from any thread, also in a forked child.  Blocks: never, unless a LogWriter does.
template <class Char>
class basic_diagnostic_logger;

template <>
class basic_diagnostic_logger<char> {
public:
    explicit basic_diagnostic_logger(std::string name) : name_(std::move(name)) {}

    const std::string& name() const { return name_; }

    /// Whether a record would be written. Ask before forming a text that costs something.
    static bool isEnabled(Severity severity) {
        return static_cast<int>(severity) >= threshold_.load(std::memory_order_relaxed);
    }

    /// Writes one record. `text` is UTF-8. Throws nothing: a record that cannot be written is lost.
    void write(Severity severity, std::string_view text) const noexcept;

    void debug(std::string_view text) const noexcept { writeIfEnabled(Severity::Debug, text); }
    void info(std::string_view text) const noexcept { writeIfEnabled(Severity::Info, text); }
    void warning(std::string_view text) const noexcept { writeIfEnabled(Severity::Warning, text); }
    void error(std::string_view text) const noexcept { writeIfEnabled(Severity::Error, text); }

private:
    friend void setLevel(Severity level);
    friend Severity level();

    void writeIfEnabled(Severity severity, std::string_view text) const noexcept {
        if (isEnabled(severity)) write(severity, text);
    }

    static std::atomic<int> threshold_;  ///< process-wide; a Severity
    std::string name_;
};

using DiagnosticLogger = basic_diagnostic_logger<char>;

/// Records below `level` are no longer formed. The default is Warning.
void setLevel(Severity level);

Severity level();

struct Record {
    std::string_view logger;
    Severity severity;
    std::string_view text;           ///< UTF-8
    std::string_view interpreter{};  ///< whose process has told it; empty: this one
};

/// Writes one, whatever the level. Throws nothing: a record that cannot be written is lost.
void write(const Record& record) noexcept;

/// Where records go. It is called on any thread, and must not log itself.
using LogWriter = std::function<void(const Record&)>;

/// Replaces where records go and returns what was there. An empty writer stands for the default, which
/// writes one line with the time, as writeLine does.
LogWriter setWriter(LogWriter writer);

/// Queues a line for the log's file descriptor, whatever the level. Control characters in `text` are escaped.
/// Blocks: never, however slow the reader of the descriptor is: a line that finds no room is counted, and the
/// log says later how many were lost. Throws nothing: a line that cannot be queued is lost.
void writeLine(std::string_view text) noexcept;

/// Whether all lines are written.  Blocks: until they are, at most for `limit`. The end of the process does
/// it, for 300 ms at most; std::_Exit does not.
bool flush(std::chrono::milliseconds limit);

/// Has lines written to a duplicate of `descriptor`, at first of standard error.  Blocks: never.
void setDescriptor(int descriptor);

/// The names of the levels: "debug", "info", "warning", "error".  Throws: std::invalid_argument otherwise.
Severity severityFromName(std::string_view name);
std::string_view nameOf(Severity severity);

/// Indents the records that this thread writes while it is in scope.
class indent_attribute {
public:
    static void increase();
    static void decrease();
};

}  // namespace foundation::log
