#include "SessionOptions.h"

#include <cstdlib>

#include <CLI/CLI.hpp>

#include "InProcessSession.h"
#include "RemoteSession.h"
#include "ServerAddress.h"

namespace app {

void SessionOptions::addTo(CLI::App& command) {
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

std::unique_ptr<Session> SessionOptions::open(const WindowSize& window) const {
    if (url.empty()) return std::make_unique<InProcessSession>(window);
    ServerAddress address = ServerAddress::from(url);
    const char* fromEnvironment = std::getenv("NUMORA_TOKEN");
    if (!token.empty()) {
        address.token = token;
    } else if (address.token.empty() && fromEnvironment != nullptr) {
        address.token = fromEnvironment;
    }
    requireToken(address.token);
    return std::make_unique<RemoteSession>(address);
}

}  // namespace app
