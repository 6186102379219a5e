#include "services/TelemetryFile.h"

#include <cerrno>
#include <chrono>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "connector/json/escape.h"
#include "foundation/log/diagnostic_logger.h"

namespace standalone {

using connector::ddux::DduxControlResponse;

namespace {

int openForAppending(const std::string& path) {
    if (path.empty()) return -1;
    // Code does not wait for who reads a pipe: it gets what there is room for.
    constexpr int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const int descriptor = open(path.c_str(), flags, 0600);
    if (descriptor < 0) {
        const std::error_code error(errno, std::generic_category());
        foundation::log::DiagnosticLogger("standalone::telemetry")
            .error("The telemetry file " + path +
                   " cannot be opened, no telemetry is kept: " + error.message());
    }
    return descriptor;
}

std::string lineOf(const connector::ddux::DduxControlMessage& record) {
    using namespace std::chrono;
    using connector::json::quoted;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    return R"({"time":)" + std::to_string(now) + R"(,"source":)" + quoted(record.source()) + R"(,"event":)" +
           quoted(record.eventName()) + R"(,"payload":)" + quoted(record.payload()) + "}\n";
}

}  // namespace

void TelemetryFile::use(const std::string& path) {
    int descriptor = openForAppending(path);
    {
        connector::MutexLock lock(mutex_);
        descriptor = descriptor_.exchange(descriptor);
    }
    if (descriptor >= 0) close(descriptor);
}

TelemetryFile::~TelemetryFile() {
    if (descriptor_ >= 0) close(descriptor_);
}

connector::Future<std::unique_ptr<DduxControlResponse>> TelemetryFile::write(
    const connector::ddux::DduxControlMessage& record) {
    const std::string line = lineOf(record);
    std::size_t done = 0;
    int failure = EIO;
    {
        connector::MutexLock lock(mutex_);
        while (isEnabled() && done < line.size()) {
            const ssize_t count = ::write(descriptor_, line.data() + done, line.size() - done);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) failure = errno;
            if (count <= 0) break;
            done += static_cast<std::size_t>(count);
        }
    }
    if (done < line.size()) {
        return connector::makeFailedFuture<std::unique_ptr<DduxControlResponse>>(std::make_exception_ptr(
            std::system_error(failure, std::generic_category(), "A telemetry record was not written")));
    }
    auto response = std::make_unique<DduxControlResponse>();
    response->isRecorded = true;
    return connector::makeReadyFuture(std::move(response));
}

}  // namespace standalone
