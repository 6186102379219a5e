#include "ServeLog.h"

#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "text.h"

namespace app {

namespace {

constexpr auto timeAtEnd = std::chrono::milliseconds(200);
constexpr int modeOfFiles = 0640;

int openFile(const std::string& option, const std::string& name) {
    // Without a wait, for what is no file: lines are written by a thread that waits itself.
    const int file =
        ::open(name.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, modeOfFiles);
    if (file >= 0) return file;
    throw InputError(option + ": " + name + " cannot be opened: " + std::generic_category().message(errno));
}

}  // namespace

class ServeLog::Opened {
public:
    explicit Opened(const Files& files) {
        if (files.log) log = openFile("--log-file", *files.log);
    }
    ~Opened() {
        if (log >= 0) ::close(log);
    }
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;

    int log = -1;
};

ServeLog::ServeLog(LogFormat format) : standardError_(STDERR_FILENO) {
    foundation::log::setWriter([&log = log_, format](const foundation::log::Record& record) {
        // The text is cut already where the line is not to be.
        log.write(recordLine(format, record, std::chrono::system_clock::now()),
                  format == LogFormat::Json ? std::string::npos : log.longestLine);
    });
    log_.setLossNotice([format](std::size_t lost) { return lossLine(format, lost); });
}

ServeLog::~ServeLog() { log_.flush(timeAtEnd); }

std::shared_ptr<const ServeLog::Opened> ServeLog::open(const Files& files) {
    return std::make_shared<const Opened>(files);
}

void ServeLog::use(std::shared_ptr<const Opened> opened) {
    opened_ = std::move(opened);
    log_.setDescriptor(opened_->log >= 0 ? opened_->log : standardError_);
}

void ServeLog::useStreams(int standardError) {
    standardError_ = standardError;
    use(opened_);
}

}  // namespace app
