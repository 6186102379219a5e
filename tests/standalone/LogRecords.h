#pragma once

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "connector/ThreadSafety.h"
#include "foundation/log/diagnostic_logger.h"

/// Collects what is logged while it is in scope, each record as "warning: text".
///
/// Threads: any.
class LogRecords {
public:
    using Severity = foundation::log::Severity;

    explicit LogRecords(Severity level = Severity::Info) {
        foundation::log::setLevel(level);
        previous_ = foundation::log::setWriter(
            [records = records_](std::string_view, Severity severity, std::string_view text) {
                constexpr std::array names{"debug: ", "info: ", "warning: ", "error: "};
                connector::MutexLock lock(records->mutex);
                records->texts.push_back(names.at(static_cast<std::size_t>(severity)) + std::string(text));
            });
    }
    ~LogRecords() {
        foundation::log::setWriter(previous_);
        foundation::log::setLevel(Severity::Warning);
    }
    LogRecords(const LogRecords&) = delete;
    LogRecords& operator=(const LogRecords&) = delete;

    /// How many records there are that begin with `start`.
    std::ptrdiff_t count(std::string_view start) const {
        connector::MutexLock lock(records_->mutex);
        return std::ranges::count_if(records_->texts,
                                     [start](const std::string& text) { return text.starts_with(start); });
    }
    std::string all() const {
        connector::MutexLock lock(records_->mutex);
        std::string joined;
        for (const std::string& text : records_->texts) joined += text + '\n';
        return joined;
    }

private:
    struct Records {
        connector::Mutex mutex;
        std::vector<std::string> texts GUARDED_BY(mutex);
    };
    // Shared with the writer, which another thread may be in while this goes.
    const std::shared_ptr<Records> records_ = std::make_shared<Records>();
    foundation::log::LogWriter previous_;
};
