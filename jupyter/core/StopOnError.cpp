#include "StopOnError.h"

#include "foundation/core/utcText.h"

namespace jupyter {

namespace {

bool isUtc(const std::string& date) { return date.ends_with("Z") || date.ends_with("+00:00"); }

// With microseconds, as some clients write it, so that a text which is less is earlier: one with milliseconds
// alone counts as the end of these.
std::string textOf(std::chrono::system_clock::time_point time) {
    const auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
    std::string text = foundation::core::utcText(time);
    text.replace(text.size() - 1, 1, std::to_string(1000 + micros % 1000).substr(1) + 'Z');
    return text;
}

}  // namespace

std::uint64_t StopOnError::begin(const Request& failed, std::chrono::system_clock::time_point time) {
    session_ = failed.session;
    time_ = textOf(time);
    return ++number_;
}

void StopOnError::end(std::uint64_t number) {
    if (number == number_) session_.clear();
}

bool StopOnError::covers(const Request& cell) const {
    return !session_.empty() && cell.session == session_ && isUtc(cell.date) && cell.date < time_;
}

}  // namespace jupyter
