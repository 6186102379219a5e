#include "CallCommand.h"

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <unistd.h>

#include "SessionOptions.h"
#include "connector/json/parse.h"
#include "connector/wireWords.h"
#include "optionValues.h"
#include "terminal.h"
#include "text.h"

namespace app {

namespace {

struct CallOptions {
    std::string function;
    std::vector<std::string> arguments;
    int nargout = 1;
    int timeoutSeconds = 0;
    std::string dequeMode;
    SessionOptions session;
};

std::string requiredMode(const std::string& word) {
    static const std::set<std::string> words = {"default",          "idle",        "ppe", "pause", "prompt",
                                                "non_debug_prompt", "debug_prompt"};
    if (words.contains(word)) return word;
    throw CLI::ValidationError(
        "--deque-mode must be default, idle, ppe, pause, prompt, non_debug_prompt or debug_prompt");
}

// The message holds values, not texts.
Poco::JSON::Array::Ptr valuesOf(const std::vector<std::string>& texts) {
    Poco::JSON::Array::Ptr values = new Poco::JSON::Array;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::string what = "argument number " + std::to_string(i + 1);
        requireUtf8(what, texts[i]);
        try {
            values->add(connector::json::parse(texts[i]));
        } catch (const connector::json::ParseError& error) {
            throw InputError(what + ": " + error.what());
        }
    }
    return values;
}

// Results are written so that they can stand inside markup, which nobody wants to read in a terminal.
std::string readable(const std::string& json) {
    std::string text;
    for (std::size_t i = 0; i < json.size(); ++i) {
        text.push_back(json[i]);
        if (json[i] != '\\') continue;
        const std::string_view escape = std::string_view(json).substr(i + 1, 5);
        if (escape == "u0026" || escape == "u0027" || escape == "u003c" || escape == "u003d" ||
            escape == "u003e") {
            text.back() = static_cast<char>(std::stoi(json.substr(i + 2, 4), nullptr, 16));
            i += escape.size();
        } else if (i + 1 < json.size()) {
            text.push_back(json[++i]);
        }
    }
    return text;
}

int runCall(const CallOptions& options) {
    requireUtf8("FUNCTION", options.function);
    Poco::JSON::Object::Ptr message = new Poco::JSON::Object;
    message->set("function", options.function);
    message->set("nargout", options.nargout);
    message->set("timeoutMs", options.timeoutSeconds * 1000);
    if (!options.dequeMode.empty()) message->set("dequeMode", options.dequeMode);
    message->set("arguments", valuesOf(options.arguments));
    const auto session = options.session.open(windowSize(STDOUT_FILENO));
    session->refuseInput();
    const auto response = session->request(connector::wire::type::feval, message);

    const auto faults = response->getArray("messageFaults");
    const bool hasFailed = response->getValue<bool>("isError") || (faults && faults->size() > 0);
    for (std::size_t i = 0; faults && i < faults->size(); ++i) {
        const auto fault = faults->getObject(static_cast<unsigned>(i));
        printError(session->streams().error, fault->getValue<std::string>("faultCode") + ": " +
                                                 fault->getValue<std::string>("message"));
    }
    if (!hasFailed) {
        writeAll(session->streams().output, readable(response->getValue<std::string>("results")) + "\n");
    }
    return hasFailed ? 1 : 0;
}

}  // namespace

void addCallCommand(CLI::App& program, std::function<int()>& command) {
    auto options = std::make_shared<CallOptions>();
    CLI::App* call =
        program.add_subcommand("call", "Call a function and print its results as one JSON array");
    call->fallthrough();
    call->add_option("FUNCTION", options->function)
        ->required()
        ->description("Its name, dotted through modules");
    call->add_option("JSON", options->arguments)
        ->description("Its arguments, each one JSON value; '--' goes before one that begins with a dash");
    addInteger(*call, "--nargout", options->nargout, 0, 10'000, "Number of results (default: 1)")
        ->type_name("N");
    addInteger(*call, "--timeout", options->timeoutSeconds, 1, 2'147'483, "Give up after S seconds")
        ->type_name("S");
    call->add_option_function<std::string>(
            "--deque-mode", [options](const std::string& word) { options->dequeMode = requiredMode(word); },
            "When it may run: default, idle, prompt, pause, or ppe, also inside running code")
        ->type_name("WORD");
    options->session.addTo(*call);
    call->callback([options, &command] { command = [options] { return runCall(*options); }; });
}

}  // namespace app
