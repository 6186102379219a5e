#include "ConsoleCommand.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "Console.h"
#include "LineEditor.h"
#include "PlainLines.h"
#include "SessionOptions.h"

namespace app {

namespace {

std::unique_ptr<LineSource> openLines(const StandardStreams& streams) {
    if (::isatty(streams.input) && ::isatty(streams.output))
        return std::make_unique<LineEditor>(streams.input, streams.output, streams.error);
    return std::make_unique<PlainLines>(streams.input);
}

int runConsole(const SessionOptions& options) {
    const auto session = options.open(windowSize(STDOUT_FILENO));
    const auto lines = openLines(session->streams());
    Console(*session, *lines).run();
    return 0;
}

}  // namespace

void addConsoleCommand(CLI::App& program, std::function<int()>& command) {
    CLI::App* console = program.add_subcommand("console", "Run code interactively, line by line");
    console->fallthrough();
    auto options = std::make_shared<SessionOptions>();
    options->addTo(*console);
    console->callback([options, &command] { command = [options] { return runConsole(*options); }; });
}

}  // namespace app
