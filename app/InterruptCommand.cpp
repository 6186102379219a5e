#include "InterruptCommand.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "ServerRequests.h"
#include "SessionOptions.h"
#include "interpreterInfo.h"
#include "terminal.h"

namespace app {

namespace {

// Asked before: an interrupt is answered alike whether or not there was anything to interrupt.
int runInterrupt(const SessionOptions& options) {
    ServerRequests server(options.server());
    const auto info = server.describe();
    const auto activity = textIn(*info, "state") == "ready" ? textIn(*info, "activity") : "idle";
    std::string told = "Nothing ran in the interpreter \"" + server.interpreter() + "\".\n";
    if (activity != "idle") {
        server.interrupt();
        told = "The interpreter \"" + server.interpreter() + "\" was interrupted";
        told += activity == "input" ? " where it waited for input.\n"
                : textIn(*info, "health") == "deaf"
                    ? "; its native code does not look, but 'numora restart' ends it.\n"
                    : ".\n";
    }
    writeAll(STDOUT_FILENO, told);
    return 0;
}

}  // namespace

void addInterruptCommand(CLI::App& program, std::function<int()>& command) {
    auto options = std::make_shared<SessionOptions>();
    CLI::App* interrupt =
        program.add_subcommand("interrupt", "Interrupt what runs in a server's interpreter");
    interrupt->fallthrough();
    options->addInterpreterTo(*interrupt);
    interrupt->callback([options, &command] { command = [options] { return runInterrupt(*options); }; });
}

}  // namespace app
