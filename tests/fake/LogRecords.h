#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "connector/ThreadSafety.h"
#include "foundation/log/diagnostic_logger.h"

namespace fake {

/// Collects what one logger writes, from the level debug, while it is in scope.
///
/// Threads: any.
class LogRecords {
public:
    explicit LogRecords(std::string logger)
        : logger_(std::move(logger)),
          previous_(foundation::log::setWriter(
              [this](std::string_view name, foundation::log::Severity, std::string_view text) {
                  if (name != logger_) return;
                  connector::MutexLock lock(mutex_);
                  texts_.emplace_back(text);
              })) {
        foundation::log::setLevel(foundation::log::Severity::Debug);
    }
    ~LogRecords() {
        foundation::log::setLevel(foundation::log::Severity::Warning);
        foundation::log::setWriter(previous_);
    }
    LogRecords(const LogRecords&) = delete;
    LogRecords& operator=(const LogRecords&) = delete;

    std::ptrdiff_t count(std::string_view text) const EXCLUDES(mutex_) {
        connector::MutexLock lock(mutex_);
        return std::ranges::count(texts_, text);
    }
    std::vector<std::string> texts() const EXCLUDES(mutex_) {
        connector::MutexLock lock(mutex_);
        return texts_;
    }
    bool has(std::string_view text) const { return count(text) > 0; }

private:
    const std::string logger_;
    mutable connector::Mutex mutex_;
    std::vector<std::string> texts_ GUARDED_BY(mutex_);
    const foundation::log::LogWriter previous_;
};

}  // namespace fake
