#include "StopDeadline.h"

#include <cstdlib>
#include <utility>

#include "foundation/log/diagnostic_logger.h"

namespace app {

namespace {

constexpr auto timeForLog = std::chrono::milliseconds(200);

}  // namespace

StopDeadline::StopDeadline(std::chrono::milliseconds limit, std::string reason, int status)
    : limit_(limit), reason_(std::move(reason)), status_(status), thread_([this] { run(); }) {}

StopDeadline::~StopDeadline() {
    {
        const std::lock_guard lock(mutex_);
        isOver_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void StopDeadline::run() {
    std::unique_lock lock(mutex_);
    if (changed_.wait_for(lock, limit_, [this] { return isOver_; })) return;
    foundation::log::DiagnosticLogger("numora").error(reason_);
    foundation::log::flush(timeForLog);
    std::_Exit(status_);
}

}  // namespace app
