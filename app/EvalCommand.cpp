#include "EvalCommand.h"

#include <chrono>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "Evaluation.h"
#include "SessionOptions.h"
#include "StreamedEvaluation.h"
#include "optionValues.h"
#include "text.h"

namespace app {

namespace {

struct EvalOptions {
    std::vector<std::string> codes;
    bool json = false;
    bool stream = false;
    int timeoutSeconds = 0;
    int width = 0;
    int height = 0;
    SessionOptions session;
};

// Standard input is read before the interpreter starts, while Ctrl-C still ends the program.
std::vector<std::string> readCodes(std::vector<std::string> codes) {
    bool standardInputTaken = false;
    for (std::size_t i = 0; i < codes.size(); ++i) {
        std::string what = "CODE number " + std::to_string(i + 1);
        if (codes[i] == "-") {
            what = "standard input";
            if (standardInputTaken) throw InputError("standard input can be read only once");
            standardInputTaken = true;
            codes[i] = readAll(STDIN_FILENO);
        }
        requireUtf8(what, codes[i]);
    }
    return codes;
}

EvaluationSettings settingsFor(const EvalOptions& options) {
    EvaluationSettings settings{.window = windowSize(STDOUT_FILENO),
                                .timeoutSeconds = options.timeoutSeconds};
    if (options.width > 0) settings.window.columns = options.width;
    if (options.height > 0) settings.window.rows = options.height;
    return settings;
}

void printJson(const Poco::JSON::Object& response, int output) {
    std::ostringstream line;
    response.stringify(line, 0);
    writeAll(output, line.str() + "\n");
}

// Other clients' code may wait for input, too, and is typed a whole line.
std::string textFor(const Session& session, const std::string& code, bool isTyped) {
    return isTyped || session.isShared() ? withFinalNewline(code) : code;
}

bool stream(Session& session, const std::vector<std::string>& codes, const EvalOptions& options) {
    auto code = codes.begin();
    StreamedEvaluation evaluation(
        session, {.json = options.json, .limit = std::chrono::seconds(options.timeoutSeconds)});
    return evaluation.run([&](const auto* prompt) -> std::optional<std::string> {
        if (code == codes.end()) return std::nullopt;
        return textFor(session, *code++, prompt != nullptr);
    });
}

bool printResponses(Session& session, const std::vector<std::string>& codes,
                    const EvaluationSettings& settings) {
    const auto streams = session.streams();
    bool failed = false;
    Evaluation last;
    for (const auto& code : codes) {
        if (&code != &codes.front()) session.goOn();
        const bool typed = last.wants == Evaluation::Wants::Input;
        const auto response = sendEval(session, textFor(session, code, typed), settings);
        last = outcomeOf(session, typed ? "" : code, *response);
        printJson(*response, streams.output);
        if (session.wasDropped()) printError(streams.error, last.faults.back());
        if (last.wants == Evaluation::Wants::RestOfBlock) {
            printError(streams.error, "the code ends inside an open block and was not run");
            failed = true;
        }
        failed = failed || last.failed;
    }
    if (last.wants == Evaluation::Wants::Input) {
        printError(streams.error, "the code still waits for input");
        failed = true;
    }
    return !failed;
}

int runEval(const EvalOptions& options) {
    const auto codes = readCodes(options.codes);
    const auto settings = settingsFor(options);
    const auto session = options.session.open(settings.window);
    const bool isStreamed = options.stream || !options.json;
    const bool isGood =
        isStreamed ? stream(*session, codes, options) : printResponses(*session, codes, settings);
    return isGood ? 0 : 1;
}

}  // namespace

void addEvalCommand(CLI::App& program, std::function<int()>& command) {
    auto options = std::make_shared<EvalOptions>();
    CLI::App* eval = program.add_subcommand("eval", "Run code and print what it prints");
    eval->fallthrough();
    eval->add_option("CODE", options->codes)
        ->required()
        ->description(
            "Code to run, each in turn in one interpreter; it is typed where code waits for input. '-' reads "
            "it from standard input; '--' goes before a CODE that begins with a dash.");
    eval->add_flag("--json", options->json, "Print each response as one line of JSON");
    eval->add_flag("--stream", options->stream, "With --json: print each message of the stream instead");
    addInteger(*eval, "--timeout", options->timeoutSeconds, 1, 2'147'483,
               "Give up each evaluation after S seconds")
        ->type_name("S");
    constexpr int largestWindow = 32'767;
    addInteger(*eval, "--width", options->width, 1, largestWindow, "Width of the window in characters")
        ->type_name("N");
    addInteger(*eval, "--height", options->height, 1, largestWindow, "Height of the window in lines")
        ->type_name("N");
    options->session.addTo(*eval);
    eval->callback([options, &command] { command = [options] { return runEval(*options); }; });
}

}  // namespace app
