#include "ConsoleCommand.h"

#include <cstdlib>
#include <memory>
#include <string_view>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "Console.h"
#include "ConsoleClient.h"
#include "PlainLines.h"

namespace app {

namespace {

bool canEdit() {
    const char* terminal = std::getenv("TERM");
    return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1 && terminal != nullptr &&
           *terminal != '\0' && std::string_view(terminal) != "dumb";
}

int runConsole(const ConsoleClient& client, bool isPlain) {
    if (!isPlain && canEdit()) client.run();
    const auto session = client.session.open(windowSize(STDOUT_FILENO));
    PlainLines lines(session->streams());
    Console(*session, lines).run();
    return 0;
}

}  // namespace

void addConsoleCommand(CLI::App& program, std::function<int()>& command) {
    CLI::App* console = program.add_subcommand("console", "Run code interactively");
    console->fallthrough();
    auto client = std::make_shared<ConsoleClient>();
    client->session.addTo(*console);
    auto isPlain = std::make_shared<bool>(false);
    console->add_flag("--plain", *isPlain, "Read lines plainly, as without a terminal");
    console->add_flag("!--no-color", client->hasColours, "No colours (so does NO_COLOR in the environment)");
    console->callback([client, isPlain, &program, &command] {
        command = [client, isPlain, &program] {
            const auto* level = program.get_option("--log-level");
            if (level->count() > 0) client->logLevel = level->as<std::string>();
            return runConsole(*client, *isPlain);
        };
    });
}

}  // namespace app
