#include "LogFormat.h"

#include "connector/json/ObjectBuilder.h"
#include "foundation/core/utcText.h"
#include "foundation/log/LineWriter.h"
#include "text.h"

namespace app {

namespace {

using connector::json::ObjectBuilder;
using foundation::log::Record;

// Before it is made JSON, which has to stay whole.
std::string cut(std::string_view utf8) {
    std::size_t end = foundation::log::LineWriter::longestLine;
    if (utf8.size() <= end) return std::string(utf8);
    while ((static_cast<unsigned char>(utf8[end]) & 0xC0U) == 0x80) --end;
    return std::string(utf8.substr(0, end)) + " ... and " + std::to_string(utf8.size() - end) + " bytes more";
}

std::string jsonLine(const Record& record, const std::string& time) {
    ObjectBuilder line;
    line.add("time", time).add("level", nameOf(record.severity)).add("logger", record.logger);
    if (!record.interpreter.empty()) line.add("interpreter", record.interpreter);
    return line.add("text", cut(record.text)).take();
}

// Clients choose what it holds: nothing in it looks like an end of it, or is beyond ASCII.
std::string escaped(std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string line;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\' || byte < ' ' || byte >= 0x7F) {
            line.append("\\x").append(1, digits[byte >> 4U]).append(1, digits[byte & 15U]);
        } else {
            line.push_back(c);
        }
    }
    return line;
}

}  // namespace

LogFormat logFormatFrom(const std::string& what, const std::string& name) {
    if (name == "text") return LogFormat::Text;
    if (name == "json") return LogFormat::Json;
    throw InputError(what + " must be text or json");
}

std::string recordLine(LogFormat format, const Record& record, std::chrono::system_clock::time_point time) {
    const auto timeText = foundation::core::utcText(time);
    if (format == LogFormat::Json) return jsonLine(record, timeText);
    std::string line = timeText;
    line.append(" ").append(nameOf(record.severity)).append(" [").append(record.logger).append("] ");
    if (!record.interpreter.empty()) line.append("interpreter=").append(record.interpreter).append(" ");
    return line.append(record.text);
}

std::string accessLine(LogFormat format, const gateway::AccessEntry& entry,
                       std::chrono::system_clock::time_point time) {
    constexpr std::size_t longestAgent = 300;
    const auto timeText = foundation::core::utcText(time);
    const auto agent = std::string_view(entry.userAgent).substr(0, longestAgent);
    if (format == LogFormat::Json) {
        ObjectBuilder line;
        line.add("time", timeText).add("level", "info").add("logger", "access").add("client", entry.client);
        line.add("method", entry.method).add("path", entry.path).add("status", entry.status);
        line.add("bytes", entry.bytes).add("ms", entry.duration.count()).add("userAgent", agent);
        return line.take();
    }
    std::string line = timeText + " info [access] " + escaped(entry.client) + " " + escaped(entry.method);
    line.append(" ").append(escaped(entry.path)).append(" ").append(std::to_string(entry.status));
    line.append(" ").append(std::to_string(entry.bytes)).append(" ");
    line.append(std::to_string(entry.duration.count())).append("ms \"").append(escaped(agent)).append("\"");
    return line;
}

std::string lossLine(LogFormat format, std::size_t lost) {
    const auto text = std::to_string(lost) + (lost == 1 ? " log line was lost." : " log lines were lost.");
    return recordLine(format, {.logger = "log", .severity = foundation::log::Severity::Warning, .text = text},
                      std::chrono::system_clock::now());
}

}  // namespace app
