#include "ConsoleCommand.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "Console.h"
#include "LineEditor.h"
#include "PlainLines.h"

namespace app {

namespace {

std::unique_ptr<LineSource> openLines(const standalone::StandaloneHost& host) {
    const int input = host.standardInput();
    const int output = host.standardOutput();
    if (::isatty(input) && ::isatty(output))
        return std::make_unique<LineEditor>(input, output, host.standardError());
    return std::make_unique<PlainLines>(input);
}

int runConsole() {
    InProcessSession session(windowSize(STDOUT_FILENO));
    const auto lines = openLines(session.host());
    Console(session, *lines).run();
    return 0;
}

}  // namespace

void addConsoleCommand(CLI::App& program, std::function<int()>& command) {
    CLI::App* console = program.add_subcommand("console", "Run code interactively, line by line");
    console->fallthrough();
    console->callback([&command] { command = runConsole; });
}

}  // namespace app
