#include "RestartCommand.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "ServerRequests.h"
#include "SessionOptions.h"
#include "terminal.h"

namespace app {

namespace {

struct RestartOptions {
    bool force = false;
    SessionOptions session;
};

int runRestart(const RestartOptions& options) {
    ServerRequests server(options.session.server());
    const auto info = server.restart(options.force);
    writeAll(STDOUT_FILENO, "The interpreter \"" + server.interpreter() + "\" has begun its life number " +
                                info->optValue<std::string>("life", "?") + ".\n");
    return 0;
}

}  // namespace

void addRestartCommand(CLI::App& program, std::function<int()>& command) {
    auto options = std::make_shared<RestartOptions>();
    CLI::App* restart = program.add_subcommand(
        "restart", "Begin a new life of a server's interpreter, also of one that no interrupt reaches");
    restart->fallthrough();
    restart->add_flag("--force", options->force, "Do not interrupt what runs first, nor let exit hooks run");
    options->session.addInterpreterTo(*restart);
    restart->callback([options, &command] { command = [options] { return runRestart(*options); }; });
}

}  // namespace app
