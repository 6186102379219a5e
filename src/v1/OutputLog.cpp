#include "v1/OutputLog.h"

#include <string>

#include "fl/i18n/messages.h"
#include "fl/i18n/text.h"
#include "v1/log.h"

namespace connector::interpreter::v1 {

OutputLog::OutputLog() noexcept {
    try {
        const std::string path = fl::i18n::to_string(fl::i18n::getenv("NUFULLSTACK_TEST_CONTAINER_LOG"));
        if (path.empty()) return;
        MutexLock lock(mutex_);
        file_.open(path, std::ios::out | std::ios::app);
        if (!file_.is_open()) {
            asyncLog().error("Error: Unable to open numoraOutputStream");
            return;
        }
        file_.exceptions(std::ios::badbit | std::ios::failbit);
        isEnabled_ = true;
    } catch (...) {
        asyncLog().error("Error initializing numoraOutputStream");
    }
}

void OutputLog::write(std::u16string_view text) {
    if (!isEnabled_) return;
    const std::string utf8 = fl::i18n::to_string(text);
    try {
        MutexLock lock(mutex_);
        file_.clear();  // every piece is tried, even after one that failed
        file_ << utf8 << std::flush;
    } catch (...) {
        asyncLog().error("Error writing to numoraOutputStream");
    }
}

void OutputLog::close() {
    try {
        MutexLock lock(mutex_);
        if (file_.is_open()) file_.close();
    } catch (...) {
        asyncLog().error("Error closing numoraOutputStream");
    }
}

}  // namespace connector::interpreter::v1
