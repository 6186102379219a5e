#include "WorkerStatus.h"

#include <algorithm>
#include <array>
#include <utility>

#include "connector/common/RequestOrigin.h"
#include "fl/i18n/text.h"
#include "worker/Link.h"

namespace app {

using connector::MutexLock;

namespace {

constexpr std::size_t mostKept = std::size_t{64} << 10;  // of one text

std::uint64_t count(std::chrono::nanoseconds time) {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
}

}  // namespace

void WorkerStatus::setDeafFor(DeafFor deafFor) {
    const MutexLock lock(mutex_);
    deafFor_ = std::move(deafFor);
}

void WorkerStatus::runs(const standalone::RunningCode* innermost) {
    if (innermost == nullptr) {
        box_.clearRequest();
        const MutexLock lock(mutex_);
        isRunning_ = false;
        return;
    }
    std::string type, name;
    if (const auto* const context = innermost->context) {
        type = context->getOr(worker::requestTypeKey, type);
        if (const auto origin = connector::common::RequestOrigin::of(*context)) name = origin->request;
    }
    box_.setRequest(type, name, fl::i18n::to_string(innermost->code));
    const MutexLock lock(mutex_);
    isRunning_ = true;
    since_ = innermost->since;
    request_ = std::move(type);
    if (!name.empty()) request_.append(" ").append(name);
}

// Nearly all text is ASCII, of which there may be very much.
void WorkerStatus::printed(std::u16string_view text) {
    text = text.substr(text.size() - std::min(text.size(), mostKept));
    if (!std::ranges::all_of(text, [](char16_t unit) { return unit < 0x80; })) {
        return written(fl::i18n::to_string(std::u16string(text)));
    }
    std::array<char, 4096> piece;
    while (!text.empty()) {
        const std::size_t size = std::min(text.size(), piece.size());
        std::transform(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(size), piece.begin(),
                       [](char16_t unit) { return static_cast<char>(unit); });
        written({piece.data(), size});
        text.remove_prefix(size);
    }
}

void WorkerStatus::written(std::string_view bytes) {
    const MutexLock lock(outputMutex_);
    box_.addOutput(bytes);
}

links::PongHead WorkerStatus::pong() {
    const MutexLock lock(mutex_);
    if (!isRunning_) return {};
    return {.request = request_,
            .runningMs = count(Clock::now() - since_),
            .deafMs = deafFor_ ? count(deafFor_()) : 0};
}

}  // namespace app
