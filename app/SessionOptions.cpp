#include "SessionOptions.h"

#include <cstdlib>

#include <CLI/CLI.hpp>

#include "InProcessSession.h"
#include "RemoteSession.h"
#include "text.h"

namespace app {

void SessionOptions::addTo(CLI::App& command) {
    addInterpreterTo(command);
    workplace.addTo(command);
}

void SessionOptions::addInterpreterTo(CLI::App& command) {
    addServerTo(command);
    command.add_option("--interpreter", interpreter, "An interpreter of the server (default: default)")
        ->type_name("ID")
        ->needs(command.get_option("--url"));
}

void SessionOptions::addServerTo(CLI::App& command) {
    CLI::Option* server =
        command
            .add_option("--url", url, "Use the interpreter of a server, at the address that it has printed")
            ->type_name("URL")
            ->envname("NUMORA_URL");
    // The environment may hold a token that has nothing to do with this command, so it is looked at later.
    command.add_option("--token", token, "The token of the server (default: NUMORA_TOKEN)")
        ->type_name("TOKEN")
        ->needs(server);
}

ServerAddress SessionOptions::server() const {
    if (url.empty()) throw InputError("a server is required: --url or NUMORA_URL");
    ServerAddress address = ServerAddress::from(url);
    const char* fromEnvironment = std::getenv("NUMORA_TOKEN");
    if (!token.empty()) {
        address.token = token;
    } else if (address.token.empty() && fromEnvironment != nullptr) {
        address.token = fromEnvironment;
    }
    requireToken(address.token);
    if (!interpreter.empty()) {
        requireInterpreter("--interpreter", interpreter);
        address.interpreter = interpreter;
    }
    return address;
}

bool SessionOptions::hasServer() const {
    if (url.empty() && interpreter.empty()) return false;
    if (workplace.isChosen())
        throw InputError(
            "--venv and --folder must not be given with a server, whose interpreters have their own");
    return true;
}

std::unique_ptr<Session> SessionOptions::open(const WindowSize& window) const {
    if (!hasServer()) {
        Workplace found = workplace;
        found.find();
        return std::make_unique<InProcessSession>(window, found);
    }
    return std::make_unique<RemoteSession>(server());
}

}  // namespace app
