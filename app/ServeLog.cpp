#include "ServeLog.h"

#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "supervisor/Descriptor.h"
#include "text.h"

namespace app {

namespace {

constexpr auto timeAtEnd = std::chrono::milliseconds(200);
constexpr int modeOfFiles = 0640;

supervisor::Descriptor openFile(const std::string& option, const std::string& name) {
    // Without a wait, for what is no file: lines are written by a thread that waits itself.
    constexpr int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    supervisor::Descriptor file(::open(name.c_str(), flags, modeOfFiles));
    if (file.get() >= 0) return file;
    throw InputError(option + ": " + name + " cannot be opened: " + std::generic_category().message(errno));
}

// JSON has to stay whole; its texts are short enough.
std::size_t longestOf(LogFormat format) {
    return format == LogFormat::Json ? std::string::npos : foundation::log::LineWriter::longestLine;
}

}  // namespace

class ServeLog::Opened {
public:
    explicit Opened(const Files& files) : hasAccess(files.access.has_value()) {
        if (files.log) log = openFile("--log-file", *files.log);
        if (hasAccess && *files.access != "-") access = openFile("--access-log", *files.access);
    }

    supervisor::Descriptor log;
    supervisor::Descriptor access;
    const bool hasAccess;
};

ServeLog::ServeLog(LogFormat format)
    : format_(format), standardOutput_(STDOUT_FILENO), standardError_(STDERR_FILENO) {
    foundation::log::setWriter([&log = log_, format](const foundation::log::Record& record) {
        log.write(recordLine(format, record, std::chrono::system_clock::now()), longestOf(format));
    });
    const auto notice = [format](std::size_t lost) { return lossLine(format, lost); };
    log_.setLossNotice(notice);
    accessLog().setLossNotice(notice);
}

ServeLog::~ServeLog() {
    log_.flush(timeAtEnd);
    accessLog().flush(timeAtEnd);
}

foundation::log::LineWriter& ServeLog::accessLog() {
    static auto& writer = foundation::log::LineWriter::make();
    return writer;
}

void ServeLog::noteAccess(const gateway::AccessEntry& entry) const {
    if (!hasAccessLog_) return;
    accessLog().write(accessLine(format_, entry, std::chrono::system_clock::now()), longestOf(format_));
}

std::shared_ptr<const ServeLog::Opened> ServeLog::open(const Files& files) {
    return std::make_shared<const Opened>(files);
}

void ServeLog::use(std::shared_ptr<const Opened> opened) {
    opened_ = std::move(opened);
    log_.setDescriptor(opened_->log.get() >= 0 ? opened_->log.get() : standardError_);
    if (opened_->hasAccess) {
        accessLog().setDescriptor(opened_->access.get() >= 0 ? opened_->access.get() : standardOutput_);
    }
    hasAccessLog_ = opened_->hasAccess;
}

void ServeLog::useStreams(int standardOutput, int standardError) {
    standardOutput_ = standardOutput;
    standardError_ = standardError;
    use(opened_);
}

}  // namespace app
