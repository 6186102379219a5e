#include "thread/CodeStack.h"

#include <algorithm>
#include <utility>

namespace standalone {

bool CodeStack::interrupt(IDType request) {
    bool isAnyMarked = false;
    for (Code& code : codes_) {
        if (code.request == request) code.isInterrupted = isAnyMarked = true;
    }
    return isAnyMarked;
}

void CodeStack::interruptAll() {
    for (Code& code : codes_) code.isInterrupted = true;
}

bool CodeStack::isInterrupted() const {
    return std::any_of(codes_.begin(), codes_.end(), [](const Code& code) { return code.isInterrupted; });
}

bool CodeStack::clearInterrupts() {
    bool wasInterrupted = false;
    for (Code& code : codes_) wasInterrupted |= std::exchange(code.isInterrupted, false);
    return wasInterrupted;
}

bool CodeStack::setInterruptEnabled(bool isEnabled) { return std::exchange(isInterruptEnabled_, isEnabled); }

bool CodeStack::mayTakeInterrupt() const {
    return !codes_.empty() && codes_.back().isOpen && codes_.back().isInterrupted && isInterruptEnabled_;
}

bool CodeStack::takeInterrupt() {
    if (!mayTakeInterrupt()) return false;
    codes_.back().isInterrupted = false;
    codes_.back().wasInterrupted = true;
    codes_.back().isAtPrompt = false;  // until it says that it still is, or is again
    return true;
}

bool CodeStack::returnInterrupt() {
    if (codes_.empty() || !std::exchange(codes_.back().wasInterrupted, false)) return false;
    codes_.back().isInterrupted = true;
    return true;
}

void CodeStack::setAtPrompt(bool isAtPrompt) {
    if (!codes_.empty()) codes_.back().isAtPrompt = isAtPrompt;
}

std::vector<std::uint64_t> CodeStack::interruptedAtPrompt() const {
    std::vector<std::uint64_t> numbers;
    for (const Code& code : codes_) {
        if (code.isAtPrompt && code.isInterrupted && isInterruptEnabled_) numbers.push_back(code.number);
    }
    return numbers;
}

bool CodeStack::hasDealtWithInterrupt(std::uint64_t number) const {
    const auto code = std::find_if(codes_.begin(), codes_.end(),
                                   [number](const Code& held) { return held.number == number; });
    return code == codes_.end() || (!code->isInterrupted && code->isAtPrompt);
}

}  // namespace standalone
