#include "StreamedEvaluation.h"

#include <stdexcept>
#include <utility>

#include <Poco/JSON/Object.h>
#include <unistd.h>

#include "connector/identifiers.h"
#include "connector/wireWords.h"
#include "terminal.h"

namespace app {

namespace {

namespace words = connector::wire::channel;

constexpr auto takeLimit = std::chrono::milliseconds(200);
constexpr auto inputInterval = std::chrono::milliseconds(100);
constexpr auto graceAfterInterrupt = std::chrono::seconds(2);
constexpr auto lookInterval = std::chrono::seconds(1);

bool isInputPrompt(const std::string& prompt) {
    return prompt == "INPUT_PROMPT" || prompt == "DEBUG_PROMPT" || prompt == "KEYBOARD_PROMPT" ||
           prompt == "PAUSE_PROMPT";
}

}  // namespace

StreamedEvaluation::StreamedEvaluation(Session& session, Settings settings)
    : session_(session),
      settings_(settings),
      clears_(!settings.json && ::isatty(session.streams().output) == 1),
      stream_(session.openStream()) {}

bool StreamedEvaluation::run(const Source& next) {
    while (const auto text = next(prompt_ ? &*prompt_ : nullptr)) {
        isIncompleteBlock_ = false;
        send(*text);
        prompt_.reset();
        do {
            while (isUnfinished() && !prompt_) receive(takeLimit);
        } while (!isReady());
        if (isGivenUp_) return false;
        if (isIncompleteBlock_) fail("the code ends inside an open block and was not run");
    }
    if (prompt_) fail("the code still waits for input");
    return !hasFailed_;
}

// Whether it is time for the next text. What comes while a line is waited for, as when the code is
// interrupted, may show that none is wanted any more.
bool StreamedEvaluation::isReady() {
    if (!prompt_ || !settings_.hasInput) return true;
    while (prompt_ && !isGivenUp_ && !settings_.hasInput(*prompt_, inputInterval)) {
        receive(std::chrono::milliseconds(0));
    }
    return isGivenUp_ || prompt_ || !isUnfinished();
}

void StreamedEvaluation::send(const std::string& text) {
    isInterrupted_ = isDeaf_ = hasBegun_ = isTyped_ = false;
    graceEnd_ = Clock::time_point::max();
    told_.clear();
    deadline_ = Clock::time_point::max();
    nextLook_ = Clock::now() + lookInterval;
    StreamRequest request{.name = connector::randomUuid(), .text = text, .prompt = {}};
    if (prompt_) {
        request.prompt = prompt_->number;
    } else if (!session_.isShared() || !settings_.isTypable) {
        request.prompt = 0;
    }
    try {
        stream_->send(request);
    } catch (const PromptGone&) {  // as when the code was interrupted just now, which goes on
        hasBegun_ = true;
        if (!settings_.hasInput) fail("the code does not wait for input any more; nothing was typed");
        return;
    }
    names_.insert(request.name);
    incomplete_.insert(request.name);
    if (prompt_) noteBegin();
}

void StreamedEvaluation::receive(std::chrono::milliseconds limit) {
    const ResponseStream::Taken taken = stream_->take(limit);
    for (const auto& message : taken.messages) {
        follow(message);
        if (!isOfOthers(message)) show(message);
    }
    if (!taken.failure.empty()) giveUp(taken.failure);
    tellOfOthers();
    interruptWhenLate();
    noteInterrupts();
}

// What was typed is completed before the code goes on, so that the next message is of that code.
void StreamedEvaluation::follow(const StreamMessage& message) {
    if (!isTyped_ || message.request.empty()) return;
    if (message.channel == words::completion && message.death.empty()) return;
    isTyped_ = false;
    names_.insert(message.request);
    incomplete_.insert(message.request);
}

// Notices of losses are for everybody. Text without a name is that of threads whose code has ended.
bool StreamedEvaluation::isOfOthers(const StreamMessage& message) const {
    if (!message.channel.starts_with(words::evalResponse)) return false;
    return message.request.empty() ? session_.isShared() : !names_.contains(message.request);
}

void StreamedEvaluation::show(const StreamMessage& message) {
    const bool isResponse = message.channel.starts_with(words::evalResponse);
    const bool isCompletion = message.channel == words::completion;
    if (!message.request.empty() && !isCompletion) noteBegin();
    if (settings_.json) writeAll(session_.streams().output, message.line + "\n");
    if (!message.death.empty() && isResponse) {
        // Everything that was sent ends with it; that the text of an error says it, too, is for others.
        if (isCompletion && !incomplete_.empty()) giveUp(message.death);
    } else if (isCompletion) {
        handleCompletion(message);
    } else if (message.channel == words::prompt) {
        handlePrompt(message);
    } else if (!isResponse) {
        hasFailed_ = true;
        if (!settings_.json) tell("printed text was lost: " + message.text);
    } else if (!settings_.json) {
        print(message);
    }
}

void StreamedEvaluation::print(const StreamMessage& message) {
    const auto standard = session_.streams();
    if (message.channel == words::output) {
        writeAll(standard.output, message.text);
        if (!message.text.empty()) isInLine_ = !message.text.ends_with('\n');
    } else if (message.channel == words::error) {
        writeAll(standard.error, message.text);
    } else if (message.channel == words::suggestion) {
        writeAll(standard.error, "Did you mean: " + message.text + " ?\n");
    } else if (message.channel == words::clear && clears_) {
        writeAll(standard.output, "\033[H\033[2J");
    } else if (message.channel == words::home && clears_) {
        writeAll(standard.output, "\033[H");
    }
}

void StreamedEvaluation::handleCompletion(const StreamMessage& message) {
    incomplete_.erase(message.request);
    const bool isSuccess = message.text == connector::wire::completion::success;
    if (!isSuccess) hasFailed_ = true;
    if (hasBegun_) return;
    if (!isSuccess) return fail("the code was not run");
    noteBegin();
    isTyped_ = true;
    tell("other code waited for input, and was typed this");
}

void StreamedEvaluation::handlePrompt(const StreamMessage& message) {
    prompt_.reset();
    if (isInputPrompt(message.text)) prompt_ = Prompt{message.text, message.prompt, message.isEchoed};
    if (message.text == "INCOMPLETE_BLOCK_PROMPT") isIncompleteBlock_ = true;
}

// The time that other clients' code takes before it does not count.
void StreamedEvaluation::noteBegin() {
    if (std::exchange(hasBegun_, true) || settings_.limit.count() == 0) return;
    deadline_ = Clock::now() + settings_.limit;
}

void StreamedEvaluation::tellOfOthers() {
    if (hasBegun_ || !session_.isShared() || incomplete_.empty() || Clock::now() < nextLook_) return;
    nextLook_ = Clock::now() + lookInterval;
    std::string activity;
    try {
        activity = session_.activity();
    } catch (const std::runtime_error&) {
        return;  // whether the evaluation can go on is told by its stream alone
    }
    if (activity != "busy" && activity != "input") return;
    if (std::exchange(told_, activity) == activity) return;
    tell(activity == "busy" ? "the interpreter runs other code, which is waited for"
                            : "the interpreter waits for input of other code");
}

// The completion of what was interrupted is waited for, but not for ever: code may swallow the interrupt. No
// further code is sent then; it would wait for this one, and take its completion for its own.
void StreamedEvaluation::interruptWhenLate() {
    if (Clock::now() < deadline_ || !isUnfinished()) return;
    if (isInterrupted_) return giveUp("the code continues in spite of the interrupt");
    isInterrupted_ = true;
    fail("the code timed out after " + std::to_string(settings_.limit.count()) + " seconds");
    session_.request(connector::wire::type::interrupt, new Poco::JSON::Object);
    deadline_ = Clock::now() + graceAfterInterrupt;
}

// Code may take its time to clean up, so that the user decides whether it is left.
void StreamedEvaluation::noteInterrupts() {
    const auto now = Clock::now();
    if (const auto count = session_.interrupts(); std::exchange(interrupts_, count) != count) {
        graceEnd_ = now + graceAfterInterrupt;
        if (isDeaf_) giveUp("the code still runs");
    }
    if (now < graceEnd_ || !isUnfinished() || prompt_) return;
    graceEnd_ = Clock::time_point::max();
    isDeaf_ = true;
    const std::string end = session_.isShared() ? "; 'numora restart' ends it" : "";
    tell("the code goes on after the interrupt" + end + "; press Ctrl-C again to wait no longer");
}

void StreamedEvaluation::giveUp(const std::string& why) {
    fail(why);
    incomplete_.clear();
    isTyped_ = false;
    isGivenUp_ = true;
}

void StreamedEvaluation::fail(const std::string& why) {
    tell(why);
    hasFailed_ = true;
}

// On a line of its own where both are seen together.
void StreamedEvaluation::tell(const std::string& message) {
    if (clears_ && isInLine_) writeAll(session_.streams().output, "\n");
    isInLine_ = false;
    printError(session_.streams().error, message);
}

}  // namespace app
