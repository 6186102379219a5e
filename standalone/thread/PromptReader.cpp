#include "thread/PromptReader.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

#include <sched.h>

#include "python/interpreterLock.h"

namespace standalone {

namespace {

using namespace nmutil::prompt;  // the prompt values

constexpr std::size_t typeAheadLimit = 1U << 20U;
// A wait for typed input ends now and then, so that Python's handlers of other signals run.
constexpr auto signalCheckInterval = std::chrono::milliseconds(100);
constexpr char16_t endOfText = 3;
constexpr char16_t endOfTransmission = 4;

// With the interpreter's lock released for the wait, so that Python's own threads go on.
std::unique_ptr<QueuedRequest> takeUnlocked(RequestQueue& queue, InputRequester prompt) {
    if (auto request = queue.tryTake(prompt)) return request;
    std::unique_ptr<QueuedRequest> request;
    withoutInterpreterLock([&] { request = queue.take(prompt, signalCheckInterval); });
    return request;
}

}  // namespace

ReadResult PromptReader::readLine(ShownPrompt question, std::u16string& line) {
    const ReadResult result = waitUntil(std::move(question), [this] { return hasLine(); });
    if (result != ReadResult::Line) return result;
    if (typed_.front() == endOfTransmission) {
        typed_.erase(0, 1);
        return ReadResult::EndOfInput;
    }
    const std::size_t length = typed_.find(u'\n') + 1;
    line.assign(typed_, 0, length);
    typed_.erase(0, length);
    return ReadResult::Line;
}

ReadResult PromptReader::readKey() {
    const ReadResult result = waitUntil({.requester = PAUSE_PROMPT}, [this] { return !typed_.empty(); });
    if (result == ReadResult::Line) {
        // A line counts as one key, since that is what most clients can send.
        const std::size_t end = typed_.find(u'\n');
        typed_.erase(0, end == std::u16string::npos ? 1 : end + 1);
    }
    return result;
}

void PromptReader::type(char16_t unit) {
    if (unit == endOfText) {  // Ctrl-C, as at any terminal: what was typed on the line goes with it
        typed_.clear();
        queue_.interrupt();
        return;
    }
    if (typed_.size() >= typeAheadLimit) throw std::length_error("Too much is typed ahead.");
    typed_.push_back(unit == u'\r' ? u'\n' : unit);
}

void PromptReader::typeWhole(const std::function<void()>& action) {
    const std::size_t before = typed_.size();
    try {
        action();
    } catch (...) {
        typed_.resize(std::min(before, typed_.size()));
        throw;
    }
}

bool PromptReader::hasLine() const {
    return !typed_.empty() &&
           (typed_.front() == endOfTransmission || typed_.find(u'\n') != std::u16string::npos);
}

// Shows a prompt for as long as it is waited at.
class PromptReader::Shown {
public:
    Shown(PromptReader& reader, ShownPrompt question)
        : reader_(reader),
          outer_(reader.show(question.requester)),
          outerQuestion_(reader.ask(std::move(question))) {
        reader_.waits_.fetch_add(1, std::memory_order_release);
        reader_.queue_.setAtPrompt(true);
    }
    ~Shown() {
        reader_.waits_.fetch_sub(1, std::memory_order_release);
        reader_.queue_.setAtPrompt(false);
        reader_.show(outer_);
        reader_.ask(std::move(outerQuestion_));
        reader_.announce(outer_, false);
    }
    Shown(const Shown&) = delete;
    Shown& operator=(const Shown&) = delete;

private:
    PromptReader& reader_;
    const InputRequester outer_;
    ShownPrompt outerQuestion_;
};

// Returns the question that was asked before.
ShownPrompt PromptReader::ask(ShownPrompt question) {
    number_ = question.number;
    isEchoed_ = question.isEchoed;
    return std::exchange(question_, std::move(question));
}

ReadResult PromptReader::waitUntil(ShownPrompt question, const std::function<bool()>& isSatisfied) {
    if (isSatisfied()) return ReadResult::Line;
    const InputRequester prompt = question.requester;
    question.number = ++lastNumber_;
    const Shown shown(*this, std::move(question));
    bool isAnnounced = false;
    while (!isSatisfied()) {
        // Before the prompt is announced again: what an interrupted code prints belongs to whoever typed the
        // interrupt.
        if (!hooks_.checkInterrupts()) {
            typed_.clear();
            return ReadResult::Interrupted;
        }
        queue_.setAtPrompt(true);  // the code may have dealt with an interrupt without an exception
        if (!std::exchange(isAnnounced, true)) hooks_.beforeWait();
        if (auto request = takeUnlocked(queue_, prompt)) {
            hooks_.run(std::move(request));
            isAnnounced = false;
        } else if (queue_.isStopped()) {
            return ReadResult::Stopped;
        } else {
            sched_yield();  // a signal that is on its way to this thread gets in at any system call
        }
    }
    return ReadResult::Line;
}

}  // namespace standalone
