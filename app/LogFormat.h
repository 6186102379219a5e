#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "foundation/log/diagnostic_logger.h"
#include "gateway/AccessEntry.h"

namespace app {

/// How the lines of a server's log look: with the time in UTC, as ISO 8601 has it, and milliseconds.
///
///     2026-11-22T08:00:00.123Z info [gateway] Listening on http://127.0.0.1:8350/
///     {"time":"2026-11-22T08:00:00.123Z","level":"info","logger":"gateway","text":"Listening on ..."}
enum class LogFormat { Text, Json };

/// Throws: InputError unless `name` is "text" or "json"; `what` names the setting.
LogFormat logFormatFrom(const std::string& what, const std::string& name);

/// A record as a line, whose text is cut at 16 KiB.
std::string recordLine(LogFormat format, const foundation::log::Record& record,
                       std::chrono::system_clock::time_point time);

/// What has been asked of the server as a line, which is a record of the logger "access".
std::string accessLine(LogFormat format, const gateway::AccessEntry& entry,
                       std::chrono::system_clock::time_point time);

/// A record that tells of the loss of lines.
std::string lossLine(LogFormat format, std::size_t lost);

}  // namespace app
