#include "StreamedEvaluation.h"

#include <Poco/JSON/Object.h>

#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "terminal.h"
#include "text.h"

namespace app {

namespace {

constexpr const char* requests = "/eval/request";
constexpr std::string_view responses = "/eval/response/";
constexpr std::size_t bytesPerTake = std::size_t{1} << 20;
constexpr auto takeLimit = std::chrono::milliseconds(200);
constexpr auto graceAfterInterrupt = std::chrono::seconds(2);

standalone::SessionOptions clientOptions() {
    standalone::SessionOptions options;
    options.clientType = "numora-cli";
    // Standard output may be a pager that stands still for hours: text beyond this is lost, not the session.
    options.queueBytes = std::size_t{64} << 20;
    options.fullLimit = std::chrono::hours(24);
    return options;
}

}  // namespace

StreamedEvaluation::StreamedEvaluation(InProcessSession& session, Settings settings)
    : session_(session),
      settings_(settings),
      client_(session.host().messages()->openSession(clientOptions())) {
    client_->subscribe(std::string(responses) + "**");
}

bool StreamedEvaluation::run(const std::vector<std::string>& codes) {
    for (const std::string& code : codes) {
        isIncompleteBlock_ = false;
        send(isWaiting_ ? withFinalNewline(code) : code);
        isWaiting_ = false;
        while (incomplete_ > 0 && !isWaiting_) receive();
        if (isGivenUp_) return false;
        if (isIncompleteBlock_) fail("the code ends inside an open block and was not run");
    }
    if (isWaiting_) fail("the code still waits for input");
    return !hasFailed_;
}

void StreamedEvaluation::send(const std::string& code) {
    isInterrupted_ = false;
    if (settings_.limit.count() > 0) deadline_ = Clock::now() + settings_.limit;
    ++incomplete_;
    client_->publish(requests, connector::json::quoted(code), nullptr);
}

void StreamedEvaluation::receive() {
    const standalone::TakenFrames taken = client_->take(bytesPerTake, takeLimit);
    for (const auto& frame : taken.frames) show(*frame);
    if (taken.isClosed) {
        giveUp("the connection to the interpreter is closed: " + client_->closeReason());
    }
    interruptWhenLate();
}

void StreamedEvaluation::show(const standalone::MessageFrame& frame) {
    const auto data = connector::json::parse(frame.data());
    const std::string text = data.isString() ? data.extract<std::string>() : std::string();
    const auto& host = session_.host();
    const bool isResponse = frame.channel().substr(0, responses.size()) == responses;
    const std::string_view what = isResponse ? frame.channel().substr(responses.size()) : std::string_view();
    if (settings_.json) writeAll(host.standardOutput(), frame.text() + "\n");
    if (what == "completion") {
        --incomplete_;
        if (text != "Done: success") hasFailed_ = true;
    } else if (what == "iqminput") {
        noticePrompt(text);
    } else if (!isResponse) {
        hasFailed_ = true;
        if (!settings_.json) {
            complain(host.standardError(), "printed text was lost: " + std::string(frame.data()));
        }
    } else if (settings_.json) {
        return;
    } else if (what == "output") {
        writeAll(host.standardOutput(), text);
    } else if (what == "error") {
        writeAll(host.standardError(), text);
    } else if (what == "suggest") {
        writeAll(host.standardError(), "Did you mean: " + text + " ?\n");
    }
}

void StreamedEvaluation::noticePrompt(const std::string& prompt) {
    isWaiting_ = prompt == "INPUT_PROMPT" || prompt == "DEBUG_PROMPT" || prompt == "KEYBOARD_PROMPT" ||
                 prompt == "PAUSE_PROMPT";
    if (prompt == "INCOMPLETE_BLOCK_PROMPT") isIncompleteBlock_ = true;
}

// The completion of what was interrupted is waited for, but not for ever: code may swallow the interrupt. No
// further code is sent then; it would wait for this one, and take its completion for its own.
void StreamedEvaluation::interruptWhenLate() {
    if (Clock::now() < deadline_ || incomplete_ == 0) return;
    if (isInterrupted_) return giveUp("the code goes on in spite of the interrupt");
    isInterrupted_ = true;
    fail("the code timed out after " + std::to_string(settings_.limit.count()) + " seconds");
    session_.request("connector/v1/Interrupt", new Poco::JSON::Object);
    deadline_ = Clock::now() + graceAfterInterrupt;
}

void StreamedEvaluation::giveUp(const std::string& why) {
    fail(why);
    incomplete_ = 0;
    isGivenUp_ = true;
}

void StreamedEvaluation::fail(const std::string& why) {
    complain(session_.host().standardError(), why);
    hasFailed_ = true;
}

}  // namespace app
