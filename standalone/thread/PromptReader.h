#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "python/InterpreterServices.h"
#include "python/ShownPrompt.h"
#include "thread/RequestQueue.h"

namespace standalone {

/// The prompts of running code: which one is shown, what has been typed ahead, and the wait for more.
///
/// While code waits at a prompt, requests that may run there are run inside it; one of them types the
/// characters. A line ends with "\n"; "\r" counts as one; an end-of-transmission character at the start of a
/// line is the end of input.
///
/// Threads: `current`, `isReadingCharacters`, `number` and `isEchoed` from any; the rest from the interpreter
/// thread with the interpreter's lock, which is released while it waits.
class PromptReader {
public:
    using InputRequester = nmutil::prompt::InputRequester;

    struct Hooks {
        /// Called each time before the wait: shows what was printed, announces the prompt, answers who waits.
        std::function<void()> beforeWait;
        /// Runs a request inside the waiting code.
        std::function<void(std::unique_ptr<QueuedRequest>)> run;
        /// Tells the code of its interrupts. False when that has raised an exception, which is set then.
        std::function<bool()> checkInterrupts;
        /// Tells that another prompt is shown now, to the queue manager's listeners when it is that of the
        /// base level. May not throw.
        std::function<void(const ShownPrompt&, bool isBaseLevel)> announce;
    };

    PromptReader(RequestQueue& queue, Hooks hooks) : queue_(queue), hooks_(std::move(hooks)) {}

    InputRequester current() const { return current_.load(std::memory_order_acquire); }
    /// Whether what a client sends is typed input and not code: code waits at a prompt, whatever runs there
    /// meanwhile.
    bool isReadingCharacters() const { return waits_.load(std::memory_order_acquire) > 0; }

    /// The number of the question that is waited at, counted from 1 if nothing else was said, whatever runs
    /// there meanwhile; 0 when none is.
    std::uint64_t number() const { return number_.load(std::memory_order_acquire); }
    /// The question itself.  Threads: those that hold the interpreter's lock.
    const ShownPrompt& question() const { return question_; }
    /// The first question gets the number after this one. To be called before the first request.
    void countFrom(std::uint64_t last) { lastNumber_ = last; }
    /// Whether what is typed for it may be shown.
    bool isEchoed() const { return isEchoed_.load(std::memory_order_acquire); }

    /// Shows another prompt, and returns the one shown before.
    InputRequester show(InputRequester prompt) { return current_.exchange(prompt); }

    /// Tells listeners that `prompt` is shown, unless that is what they were told last.
    void announce(InputRequester requester, bool isBaseLevel) {
        const bool isQuestion = !isBaseLevel && requester != nmutil::prompt::NO_PROMPT;
        const ShownPrompt prompt = isQuestion ? question_ : ShownPrompt{.requester = requester};
        if (std::exchange(announced_, prompt) != prompt) hooks_.announce(prompt, isBaseLevel);
    }

    /// Reads a line for a question, which gets its number here.
    ReadResult readLine(ShownPrompt question, std::u16string& line);
    ReadResult readKey();

    /// Types one code unit ahead.  Throws: std::length_error, when a mebi of units is waiting already.
    void type(char16_t unit);
    /// Runs `action`; what it types is forgotten if it throws.
    void typeWhole(const std::function<void()>& action);
    /// Takes what is typed ahead.
    std::u16string takeTypeAhead() { return std::exchange(typed_, {}); }

private:
    class Shown;

    ShownPrompt ask(ShownPrompt question);
    ReadResult waitUntil(ShownPrompt question, const std::function<bool()>& isSatisfied);
    bool hasLine() const;

    RequestQueue& queue_;
    const Hooks hooks_;
    std::atomic<InputRequester> current_{nmutil::prompt::BASE_PROMPT};
    std::atomic<int> waits_{0};  ///< prompts that are waited at, one inside the other
    ShownPrompt question_;       // the one that is waited at, whatever runs there
    std::atomic<std::uint64_t> number_{0};
    std::atomic<bool> isEchoed_{true};
    std::uint64_t lastNumber_ = 0;
    ShownPrompt announced_;
    std::u16string typed_;
};

}  // namespace standalone
