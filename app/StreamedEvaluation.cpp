#include "StreamedEvaluation.h"

#include <Poco/JSON/Object.h>

#include "connector/identifiers.h"
#include "connector/wireWords.h"
#include "terminal.h"
#include "text.h"

namespace app {

namespace {

namespace words = connector::wire::channel;

constexpr auto takeLimit = std::chrono::milliseconds(200);
constexpr auto graceAfterInterrupt = std::chrono::seconds(2);

}  // namespace

StreamedEvaluation::StreamedEvaluation(Session& session, Settings settings)
    : session_(session), settings_(settings), stream_(session.openStream()) {}

bool StreamedEvaluation::run(const std::vector<std::string>& codes) {
    for (const std::string& code : codes) {
        isIncompleteBlock_ = false;
        send(isWaiting_ ? withFinalNewline(code) : code);
        isWaiting_ = false;
        prompt_ = 0;
        while (!incomplete_.empty() && !isWaiting_) receive();
        if (isGivenUp_) return false;
        if (isIncompleteBlock_) fail("the code ends inside an open block and was not run");
    }
    if (isWaiting_) fail("the code still waits for input");
    return !hasFailed_;
}

void StreamedEvaluation::send(const std::string& code) {
    isInterrupted_ = hasBegun_ = false;
    if (settings_.limit.count() > 0) deadline_ = Clock::now() + settings_.limit;
    const std::string name = connector::randomUuid();
    stream_->send({.name = name, .text = code, .prompt = isWaiting_ ? prompt_ : 0});
    names_.insert(name);
    incomplete_.insert(name);
}

void StreamedEvaluation::receive() {
    const ResponseStream::Taken taken = stream_->take(takeLimit);
    for (const auto& message : taken.messages) show(message);
    if (!taken.failure.empty()) giveUp(taken.failure);
    interruptWhenLate();
}

// Notices of losses are for everybody. Text without a name is that of threads whose code has ended.
bool StreamedEvaluation::isOfOthers(const StreamMessage& message) const {
    if (!message.channel.starts_with(words::evalResponse)) return false;
    return message.request.empty() ? stream_->isShared() : !names_.contains(message.request);
}

void StreamedEvaluation::show(const StreamMessage& message) {
    if (isOfOthers(message)) return;
    const auto& [channel, request, prompt, death, text, line] = message;
    const auto standard = session_.streams();
    hasBegun_ = hasBegun_ || (!request.empty() && channel != words::completion);
    const bool isResponse = channel.starts_with(words::evalResponse);
    if (settings_.json) writeAll(standard.output, line + "\n");
    if (!death.empty() && isResponse) {
        // Everything that was sent ends with it; that the text of an error says it, too, is for others.
        if (channel == words::completion && !incomplete_.empty()) giveUp(death);
    } else if (channel == words::completion) {
        incomplete_.erase(request);
        if (!hasBegun_ && text != connector::wire::completion::success) fail("the code was not run");
        if (text != connector::wire::completion::success) hasFailed_ = true;
    } else if (channel == words::prompt) {
        handlePrompt(text);
        prompt_ = prompt;
    } else if (!isResponse) {
        hasFailed_ = true;
        if (!settings_.json) {
            printError(standard.error, "printed text was lost: " + text);
        }
    } else if (settings_.json) {
        return;
    } else if (channel == words::output) {
        writeAll(standard.output, text);
    } else if (channel == words::error) {
        writeAll(standard.error, text);
    } else if (channel == words::suggestion) {
        writeAll(standard.error, "Did you mean: " + text + " ?\n");
    }
}

void StreamedEvaluation::handlePrompt(const std::string& prompt) {
    isWaiting_ = prompt == "INPUT_PROMPT" || prompt == "DEBUG_PROMPT" || prompt == "KEYBOARD_PROMPT" ||
                 prompt == "PAUSE_PROMPT";
    if (prompt == "INCOMPLETE_BLOCK_PROMPT") isIncompleteBlock_ = true;
}

// The completion of what was interrupted is waited for, but not for ever: code may swallow the interrupt. No
// further code is sent then; it would wait for this one, and take its completion for its own.
void StreamedEvaluation::interruptWhenLate() {
    if (Clock::now() < deadline_ || incomplete_.empty()) return;
    if (isInterrupted_) return giveUp("the code continues in spite of the interrupt");
    isInterrupted_ = true;
    fail("the code timed out after " + std::to_string(settings_.limit.count()) + " seconds");
    session_.request(connector::wire::type::interrupt, new Poco::JSON::Object);
    deadline_ = Clock::now() + graceAfterInterrupt;
}

void StreamedEvaluation::giveUp(const std::string& why) {
    fail(why);
    incomplete_.clear();
    isGivenUp_ = true;
}

void StreamedEvaluation::fail(const std::string& why) {
    printError(session_.streams().error, why);
    hasFailed_ = true;
}

}  // namespace app
