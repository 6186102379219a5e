#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <string_view>

namespace foundation::log {

enum class Severity { Debug, Info, Warning, Error };

/// A named logger. All loggers write into one process-wide log, which is off below its level.
///
/// Threads: every operation from any thread.  Locks: the log's own mutex, while a record is written.
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

    void writeIfEnabled(Severity severity, std::string_view text) const noexcept {
        if (isEnabled(severity)) write(severity, text);
    }

    static std::atomic<int> threshold_;  ///< process-wide; a Severity
    std::string name_;
};

using DiagnosticLogger = basic_diagnostic_logger<char>;

/// Records below `level` are no longer formed. The default is Warning.
void setLevel(Severity level);

/// Where records go: the logger's name, the severity and the text, one call at a time.
/// Must not log itself.
using LogWriter = std::function<void(std::string_view logger, Severity, std::string_view text)>;

/// Replaces where records go and returns what was there. An empty writer stands for the default, which
/// writes one line with the time to a file descriptor.
LogWriter setWriter(LogWriter writer);

/// Replaces the file descriptor that the default writer uses, at first that of standard error, and returns
/// what was there, which may then be closed.
/// Blocks: while a record is being written.
int setDescriptor(int descriptor);

/// The names of the levels: "debug", "info", "warning", "error".  Throws: std::invalid_argument otherwise.
Severity severityFromName(std::string_view name);

/// Indents the records that this thread writes while it is in scope.
class indent_attribute {
public:
    static void increase();
    static void decrease();
};

}  // namespace foundation::log
