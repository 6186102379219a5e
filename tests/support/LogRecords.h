#pragma once

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
    explicit LogRecords(std::string logger, Severity level = Severity::Debug);
    ~LogRecords();
    LogRecords(const LogRecords&) = delete;
    LogRecords& operator=(const LogRecords&) = delete;

    std::vector<std::string> lines() const;
    /// The lines, each with a line break after it.
    std::string all() const;
    /// How many records there are that begin with `start`.
    std::ptrdiff_t count(std::string_view start) const;
    bool has(std::string_view line) const;

private:
    struct Records {
        connector::Mutex mutex;
        std::vector<std::string> lines GUARDED_BY(mutex);
    };
    // Shared with the writer, which another thread may be in while this goes.
    const std::shared_ptr<Records> records_ = std::make_shared<Records>();
    foundation::log::LogWriter previous_;
};
