#include "foundation/log/diagnostic_logger.h"

#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <utility>

#include <boost/log/attributes/clock.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sources/channel_logger.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/support/date_time.hpp>
#include <boost/log/utility/manipulators/add_value.hpp>
#include <boost/make_shared.hpp>
#include <unistd.h>

#include "connector/ThreadSafety.h"

namespace foundation::log {

namespace {

namespace logging = boost::log;

constexpr std::array<const char*, 4> severityNames{"debug", "info", "warning", "error"};

thread_local int indentation = 0;

// Held while a record is written, so that a descriptor that was replaced is in use no more.
connector::Mutex descriptorMutex;
int logDescriptor GUARDED_BY(descriptorMutex) = STDERR_FILENO;

// Writes each record as one line, whole, so that lines of several processes on one terminal do not mix.
class DescriptorBackend : public logging::sinks::basic_formatted_sink_backend<char> {
public:
    void consume(const logging::record_view&, const std::string& text) {
        const std::string line = text + "\n";
        std::string_view rest = line;
        connector::MutexLock lock(descriptorMutex);
        while (!rest.empty()) {
            const ssize_t count = ::write(logDescriptor, rest.data(), rest.size());
            if (count < 0 && errno != EINTR) return;
            if (count > 0) rest.remove_prefix(static_cast<std::size_t>(count));
        }
    }
};

// Boost.Log keeps the sink, its lock and the format; the default sink is a plain line on standard error.
class Log {
public:
    Log() {
        logging::core::get()->add_global_attribute("TimeStamp", logging::attributes::local_clock());
        namespace expr = logging::expressions;
        auto sink = boost::make_shared<logging::sinks::synchronous_sink<DescriptorBackend>>();
        sink->set_formatter(expr::stream << expr::format_date_time<boost::posix_time::ptime>(
                                                "TimeStamp", "%Y-%m-%d %H:%M:%S.%f")
                                         << " " << expr::attr<std::string>("Level") << " ["
                                         << expr::attr<std::string>("Channel") << "] " << expr::smessage);
        logging::core::get()->add_sink(sink);
    }

    void write(const std::string& channel, Severity severity, std::string_view text) {
        if (const auto writer = currentWriter()) {
            (*writer)(channel, severity, text);
            return;
        }
        logging::sources::channel_logger_mt<std::string> logger(logging::keywords::channel = channel);
        BOOST_LOG(logger) << logging::add_value(
                                 "Level", std::string(severityNames.at(static_cast<std::size_t>(severity))))
                          << std::string(static_cast<std::size_t>(2 * indentation), ' ') << text;
    }

    LogWriter exchange(LogWriter writer) EXCLUDES(mutex_) {
        auto next = writer ? std::make_shared<const LogWriter>(std::move(writer)) : nullptr;
        connector::MutexLock lock(mutex_);
        const auto previous = std::exchange(writer_, std::move(next));
        return previous ? *previous : LogWriter();
    }

private:
    // Copied out, so that a writer runs without the lock and may itself replace the writer.
    std::shared_ptr<const LogWriter> currentWriter() EXCLUDES(mutex_) {
        connector::MutexLock lock(mutex_);
        return writer_;
    }

    connector::Mutex mutex_;
    std::shared_ptr<const LogWriter> writer_ GUARDED_BY(mutex_);
};

// Never destroyed: threads may log while the process ends.
Log& processLog() {
    static auto* instance = new Log;
    return *instance;
}

}  // namespace

std::atomic<int> basic_diagnostic_logger<char>::threshold_{static_cast<int>(Severity::Warning)};

void basic_diagnostic_logger<char>::write(Severity severity, std::string_view text) const noexcept {
    try {
        processLog().write(name_, severity, text);
    } catch (...) {
        // A record that cannot be written must not take down what it tells about.
    }
}

void setLevel(Severity level) { DiagnosticLogger::threshold_.store(static_cast<int>(level)); }

int setDescriptor(int descriptor) {
    connector::MutexLock lock(descriptorMutex);
    return std::exchange(logDescriptor, descriptor);
}

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
