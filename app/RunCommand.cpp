#include "RunCommand.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <Poco/JSON/Array.h>
#include <fcntl.h>
#include <unistd.h>

#include "ScriptInput.h"
#include "SessionOptions.h"
#include "StreamedEvaluation.h"
#include "connector/identifiers.h"
#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "connector/wireWords.h"
#include "terminal.h"
#include "text.h"

namespace app {

namespace {

using Poco::JSON::Array;
using Poco::JSON::Object;

constexpr const char* standardInput = "-";

struct RunOptions {
    std::vector<std::string> words;  ///< the file and its arguments
    SessionOptions session;
};

/// Read before the interpreter starts, which may work in another folder.
struct Script {
    std::vector<std::string> words;
    std::string source;
    std::string folder;
    std::string file;  ///< for `__file__`: absolute
};

std::string readFile(const std::string& path) {
    if (path == standardInput) return readAll(STDIN_FILENO);
    const auto fail = [&path] { throw InputError("cannot read " + path + ": " + std::strerror(errno)); };
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) fail();
    std::string text;
    char buffer[65536];
    ssize_t count = 0;
    while ((count = ::read(descriptor, buffer, sizeof buffer)) > 0) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    if (count < 0) fail();
    ::close(descriptor);
    return text;
}

// Strings of JSON are strings of Python, too.
std::string listOf(const std::vector<std::string>& words) {
    std::string list;
    for (const auto& word : words) list += connector::json::quoted(word) + ", ";
    return "[" + list + "]";
}

Script readScript(const std::vector<std::string>& words) {
    if (words.empty()) throw InputError("FILE is required");
    const std::string& file = words[0];
    if (file.starts_with('-') && file != standardInput)
        throw InputError(file + " is no option of numora run");
    for (const auto& word : words) requireUtf8("an argument", word);
    Script script{.words = words, .source = readFile(file), .folder = {}, .file = {}};
    requireUtf8(file, script.source);
    if (file != standardInput) {
        script.folder = std::filesystem::weakly_canonical(file).parent_path().string();
        script.file = std::filesystem::absolute(file).string();
    }
    return script;
}

/// The code that runs the script. It is sent as a whole: the interpreter may be elsewhere.
std::string codeFor(const std::string& name, const Script& script, const Session& session) {
    // Those who look at the last request of an interpreter see its beginning.
    std::string code = "# numora run " + connector::json::quoted(script.words[0]) +
                       "\n__import__('numora._script')._script.";
    code += session.isShared() ? "run_program(" : "run_only(";
    code.append(connector::json::quoted(name))
        .append(", ")
        .append(connector::json::quoted(script.words[0]))
        .append(", ");
    code += listOf({script.words.begin() + 1, script.words.end()});
    if (!session.isShared()) {
        const auto [input, output, error] = session.streams();
        code += ", (" + std::to_string(input) + ", " + std::to_string(output) + ", " + std::to_string(error) +
                ")";
    }
    code.append(", source=").append(connector::json::quoted(script.source));
    code.append(", folder=").append(connector::json::quoted(script.folder));
    return code.append(", file=").append(connector::json::quoted(script.file)).append(");");
}

int statusOf(const std::string& name, Session& session) {
    Array::Ptr arguments = new Array;
    arguments->add(name);
    Object::Ptr message = new Object;
    message->set("function", std::string("numora._script.status_of"));
    message->set("nargout", 1);
    message->set("arguments", arguments);
    message->set("dequeMode", std::string("ppe"));
    const auto response = session.request(connector::wire::type::feval, message);
    const auto results = connector::json::parse(response->optValue<std::string>("results", "[]"));
    const auto values = results.extract<Array::Ptr>();
    return values->size() == 1 ? values->getElement<int>(0) : 1;
}

int runScript(const RunOptions& options) {
    const auto script = readScript(options.words);
    const auto session = options.session.open(windowSize(STDOUT_FILENO));
    const std::string name = connector::randomUuid();
    ScriptInput input(session->streams().input);
    bool isSent = false;
    StreamedEvaluation evaluation(*session,
                                  {.isTypable = false, .hasInput = [&](const auto& prompt, auto limit) {
                                       return input.wait(prompt.isEchoed, limit);
                                   }});
    const bool isGood = evaluation.run([&](const auto* prompt) -> std::optional<std::string> {
        // Of several lines a key would take all.
        if (prompt != nullptr) return input.read(session->isShared() && prompt->name != "PAUSE_PROMPT");
        if (std::exchange(isSent, true)) return std::nullopt;
        return codeFor(name, script, *session);
    });
    return isGood ? statusOf(name, *session) : 1;
}

}  // namespace

void addRunCommand(CLI::App& program, std::function<int()>& command) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* run = program.add_subcommand("run", "Run a Python script; '-' reads it from standard input");
    run->prefix_command();
    options->session.addTo(*run);
    run->callback([options, run, &command] {
        options->words = run->remaining();
        command = [options] { return runScript(*options); };
    });
}

}  // namespace app
