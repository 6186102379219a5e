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

std::string lossLine(LogFormat format, std::size_t lost) {
    const auto text = std::to_string(lost) + (lost == 1 ? " log line was lost." : " log lines were lost.");
    return recordLine(format, {.logger = "log", .severity = foundation::log::Severity::Warning, .text = text},
                      std::chrono::system_clock::now());
}

}  // namespace app
