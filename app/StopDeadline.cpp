#include "StopDeadline.h"

#include <cstdlib>

#include "foundation/log/diagnostic_logger.h"

namespace app {

namespace {

constexpr auto timeForLog = std::chrono::milliseconds(200);

}  // namespace

StopDeadline::StopDeadline(std::chrono::milliseconds limit) : limit_(limit), thread_([this] { run(); }) {}

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
    foundation::log::DiagnosticLogger("numora").error(
        "The running code does not end; the process ends without it.");
    foundation::log::flush(timeForLog);
    std::_Exit(0);
}

}  // namespace app
