#include "support/LogRecords.h"

#include <algorithm>
#include <array>

LogRecords::LogRecords(std::string logger, Severity level) {
    foundation::log::setLevel(level);
    previous_ =
        foundation::log::setWriter([records = records_, logger = std::move(logger)](
                                       std::string_view name, Severity severity, std::string_view text) {
            constexpr std::array names{"debug: ", "info: ", "warning: ", "error: "};
            if (!logger.empty() && name != logger) return;
            connector::MutexLock lock(records->mutex);
            records->lines.push_back(names.at(static_cast<std::size_t>(severity)) + std::string(text));
        });
}

LogRecords::~LogRecords() {
    foundation::log::setWriter(previous_);
    foundation::log::setLevel(Severity::Warning);
}

std::vector<std::string> LogRecords::lines() const {
    connector::MutexLock lock(records_->mutex);
    return records_->lines;
}

std::string LogRecords::all() const {
    std::string joined;
    for (const std::string& line : lines()) joined += line + '\n';
    return joined;
}

std::ptrdiff_t LogRecords::count(std::string_view start) const {
    return std::ranges::count_if(lines(), [start](const auto& line) { return line.starts_with(start); });
}

bool LogRecords::has(std::string_view line) const { return std::ranges::count(lines(), line) > 0; }
