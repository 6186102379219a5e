#include "foundation/log/diagnostic_logger.h"

#include <array>
#include <memory>
#include <stdexcept>
#include <utility>

#include <boost/log/attributes/clock.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/unlocked_frontend.hpp>
#include <boost/log/sources/channel_logger.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/support/date_time.hpp>
#include <boost/log/utility/manipulators/add_value.hpp>
#include <boost/make_shared.hpp>
#include <pthread.h>

#include "connector/ThreadSafety.h"
#include "foundation/log/LineWriter.h"

namespace foundation::log {

namespace {

namespace logging = boost::log;

constexpr std::array<std::string_view, 4> severityNames{"debug", "info", "warning", "error"};

thread_local int indentation = 0;

class LineBackend
    : public logging::sinks::basic_formatted_sink_backend<char, logging::sinks::concurrent_feeding> {
public:
    void consume(const logging::record_view&, const std::string& text) {
        LineWriter::ofProcess().write(text);
    }
};

// Boost.Log keeps the sink and the format. It has locks that a forked child would wait for if another thread
// of its parent held them: so only one thread at a time is inside, and none while the process forks.
class Log {
public:
    Log() {
        LineWriter::ofProcess();  // whose lock is taken after this one, by a fork as well
        ::pthread_atfork(beforeFork, afterFork, afterFork);
        logging::core::get()->add_global_attribute("TimeStamp", logging::attributes::local_clock());
        namespace expr = logging::expressions;
        auto sink = boost::make_shared<logging::sinks::unlocked_sink<LineBackend>>();
        sink->set_formatter(expr::stream << expr::format_date_time<boost::posix_time::ptime>(
                                                "TimeStamp", "%Y-%m-%d %H:%M:%S.%f")
                                         << " " << expr::attr<std::string>("Level") << " ["
                                         << expr::attr<std::string>("Channel") << "] " << expr::smessage);
        logging::core::get()->add_sink(sink);
    }

    void write(const Record& record) CONNECTOR_EXCLUDES(mutex_) {
        if (const auto writer = currentWriter()) {
            (*writer)(record);
            return;
        }
        const connector::MutexLock lock(mutex_);
        logging::sources::channel_logger_mt<std::string> logger(logging::keywords::channel =
                                                                    std::string(record.logger));
        BOOST_LOG(logger) << logging::add_value("Level", std::string(nameOf(record.severity)))
                          << std::string(static_cast<std::size_t>(2 * indentation), ' ') << record.interpreter
                          << (record.interpreter.empty() ? "" : ": ") << record.text;
    }

    LogWriter exchange(LogWriter writer) CONNECTOR_EXCLUDES(mutex_) {
        auto next = writer ? std::make_shared<const LogWriter>(std::move(writer)) : nullptr;
        const connector::MutexLock lock(mutex_);
        const auto previous = std::exchange(writer_, std::move(next));
        return previous ? *previous : LogWriter();
    }

private:
    static void beforeFork() CONNECTOR_TSA(no_thread_safety_analysis);
    static void afterFork() CONNECTOR_TSA(no_thread_safety_analysis);

    // Copied out, so that a writer runs without the lock and may itself replace the writer.
    std::shared_ptr<const LogWriter> currentWriter() CONNECTOR_EXCLUDES(mutex_) {
        const connector::MutexLock lock(mutex_);
        return writer_;
    }

    connector::Mutex mutex_;
    std::shared_ptr<const LogWriter> writer_ CONNECTOR_GUARDED_BY(mutex_);
};

// Never destroyed: threads may log while the process ends.
Log& processLog() {
    static auto* instance = new Log;
    return *instance;
}

// Before there are threads, so that no fork comes while it is being made.
[[maybe_unused]] const Log& atLoad = processLog();

void Log::beforeFork() { processLog().mutex_.lock(); }
void Log::afterFork() { processLog().mutex_.unlock(); }

}  // namespace

std::atomic<int> basic_diagnostic_logger<char>::threshold_{static_cast<int>(Severity::Warning)};

void basic_diagnostic_logger<char>::write(Severity severity, std::string_view text) const noexcept {
    log::write({.logger = name_, .severity = severity, .text = text});
}

void write(const Record& record) noexcept {
    try {
        processLog().write(record);
    } catch (...) {
        // A record that cannot be written must not take down what it tells about.
    }
}

void setLevel(Severity level) { DiagnosticLogger::threshold_.store(static_cast<int>(level)); }

Severity level() { return static_cast<Severity>(DiagnosticLogger::threshold_.load()); }

std::string_view nameOf(Severity severity) { return severityNames.at(static_cast<std::size_t>(severity)); }

void setDescriptor(int descriptor) { LineWriter::ofProcess().setDescriptor(descriptor); }

void writeLine(std::string_view text) noexcept {
    try {
        LineWriter::ofProcess().write(text);
    } catch (...) {
        // As for a record.
    }
}

bool flush(std::chrono::milliseconds limit) { return LineWriter::ofProcess().flush(limit); }

LogWriter setWriter(LogWriter writer) { return processLog().exchange(std::move(writer)); }

Severity severityFromName(std::string_view name) {
    for (std::size_t i = 0; i < severityNames.size(); ++i) {
        if (severityNames.at(i) == name) return static_cast<Severity>(i);
    }
    throw std::invalid_argument("Unknown log level '" + std::string(name) +
                                "': one of debug, info, warning and error is wanted.");
}

void indent_attribute::increase() { ++indentation; }
void indent_attribute::decrease() { --indentation; }

}  // namespace foundation::log
