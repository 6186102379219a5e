#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "connector/ThreadSafety.h"
#include "foundation/log/diagnostic_logger.h"

/// Collects what is logged while it is in scope, each record as "warning: text".
///
/// Threads: any.
class LogRecords {
public:
    using Severity = foundation::log::Severity;

    explicit LogRecords(Severity level = Severity::Info) : LogRecords("", level) {}
    /// What one logger writes.
    explicit LogRecords(std::string logger, Severity level = Severity::Debug) {
        foundation::log::setLevel(level);
        previous_ = foundation::log::setWriter([records = records_,
                                                logger = std::move(logger)](const auto& record) {
            if (!logger.empty() && record.logger != logger) return;
            connector::MutexLock lock(records->mutex);
            records->lines.push_back(std::string(nameOf(record.severity)).append(": ").append(record.text));
        });
    }
    ~LogRecords() {
        foundation::log::setWriter(previous_);
        foundation::log::setLevel(Severity::Warning);
    }
    LogRecords(const LogRecords&) = delete;
    LogRecords& operator=(const LogRecords&) = delete;

    std::vector<std::string> lines() const {
        connector::MutexLock lock(records_->mutex);
        return records_->lines;
    }
    /// The lines, each with a line break after it.
    std::string all() const {
        std::string joined;
        for (const std::string& line : lines()) joined += line + '\n';
        return joined;
    }
    /// How many records there are that begin with `start`.
    std::ptrdiff_t count(std::string_view start) const {
        return std::ranges::count_if(lines(), [start](const auto& line) { return line.starts_with(start); });
    }

private:
    struct Records {
        connector::Mutex mutex;
        std::vector<std::string> lines CONNECTOR_GUARDED_BY(mutex);
    };
    // Shared with the writer, which another thread may be in while this goes.
    const std::shared_ptr<Records> records_ = std::make_shared<Records>();
    foundation::log::LogWriter previous_;
};
