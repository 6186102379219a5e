#include "Console.h"

#include <utility>

#include <Poco/JSON/Array.h>
#include <unistd.h>

#include "connector/wireWords.h"
#include "text.h"

namespace app {

namespace {

bool isBlank(const std::string& line) { return line.find_first_not_of(" \t\r") == std::string::npos; }

bool isIndented(const std::string& line) { return !line.empty() && (line[0] == ' ' || line[0] == '\t'); }

bool isEnd(const std::string& line) {
    return line == "exit" || line == "exit()" || line == "quit" || line == "quit()";
}

}  // namespace

Console::Console(Session& session, PlainLines& lines)
    : session_(session), lines_(lines), clears_(::isatty(session.streams().output) == 1) {}

void Console::run() {
    while (const auto line = lines_.read(prompt(), isEchoed_)) {
        if (wants_ != Evaluation::Wants::Input && block_.empty() && isEnd(*line)) return;
        enter(*line);
    }
    finish();
}

std::string Console::prompt() const {
    if (wants_ == Evaluation::Wants::Input) return inputPrompt_;
    return block_.empty() ? ">>> " : "... ";
}

void Console::enter(const std::string& line) {
    if (wants_ == Evaluation::Wants::Input) {
        evaluate(line + "\n");
        return;
    }
    const bool continued = !block_.empty();
    if (!continued && isBlank(line)) return;
    block_ += continued ? "\n" + line : line;
    if (continued && isIndented(line) && !isBlank(line)) return;
    evaluate(block_);
    if (wants_ != Evaluation::Wants::RestOfBlock) block_.clear();
}

// A script may end with the last line of a block; a person who ends the session there gives the block up.
void Console::finish() {
    if (lines_.isInteractive()) return;
    const int errors = session_.streams().error;
    if (!block_.empty() && wants_ != Evaluation::Wants::Input) evaluate(block_);
    if (wants_ == Evaluation::Wants::RestOfBlock)
        printError(errors, "the code ends inside an open block and was not run");
    if (wants_ == Evaluation::Wants::Input) printError(errors, "the code still waits for input");
}

Poco::JSON::Object::Ptr Console::send(const std::string& code) {
    return sendEval(session_, code, {.window = windowSize(session_.streams().output)});
}

// Responses do not say it.
bool Console::isEchoWanted() {
    Poco::JSON::Object::Ptr message = new Poco::JSON::Object;
    message->set("function", std::string("numora._prompts.is_echoed"));
    message->set("nargout", 1);
    message->set("arguments", Poco::JSON::Array::Ptr(new Poco::JSON::Array));
    message->set("dequeMode", std::string("ppe"));
    const auto response = session_.request(connector::wire::type::feval, message);
    return response->optValue<std::string>("results", "") != "[false]";
}

void Console::evaluate(const std::string& code) {
    try {
        if (wants_ == Evaluation::Wants::Input) session_.goOn();
        const auto response = send(code);
        show(outcomeOf(session_, wants_ == Evaluation::Wants::Input ? "" : code, *response));
    } catch (const InterpreterDied& death) {
        wants_ = Evaluation::Wants::Code;
        printError(session_.streams().error, death.what());
    }
}

void Console::show(Evaluation evaluation) {
    wants_ = evaluation.wants;
    isEchoed_ = wants_ != Evaluation::Wants::Input || !lines_.isInteractive() || isEchoWanted();
    if (evaluation.clearWindow && clears_) writeAll(session_.streams().output, "\033[H\033[2J");
    if (lines_.isInteractive()) {
        // An unfinished line that asks is the prompt; any other is finished before the next prompt.
        if (wants_ == Evaluation::Wants::Input) {
            const auto start = evaluation.text.rfind('\n') + 1;  // 0 when there is no newline
            inputPrompt_ = evaluation.text.substr(start);
            evaluation.text.erase(start);
        } else if (!evaluation.text.empty()) {
            evaluation.text = withFinalNewline(std::move(evaluation.text));
        }
    }
    print(evaluation, session_.streams());
}

}  // namespace app
