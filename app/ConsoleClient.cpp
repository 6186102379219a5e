#include "ConsoleClient.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>

#include <unistd.h>

#include "ConsoleServer.h"
#include "arguments.h"
#include "text.h"

namespace app {

namespace {

// Isolated from the user's own modules: those of the current folder, and what PYTHONPATH names, are for the
// code that is typed.
constexpr const char* bootstrap = R"(import os, sys
folder, program, server, *rest = sys.argv[1:]
at = rest.index("--")
sys.path.insert(0, folder)
try:
    from numora_client.console.entry import main
except ImportError as error:
    needed = "python3-prompt-toolkit and python3-websockets"
    if (error.name or "").startswith("numora_client"):
        needed = "python3-numora-client"
    print(f"numora: lines are read plainly, since a library is missing ({error}); install {needed}", file=sys.stderr)
    if int(server):
        os.kill(int(server), 15)
    os.execv(program, [program, "console", "--plain", *rest[:at]])
main(rest[at + 1:]))";

using Words = std::vector<std::string>;

Words flagsOf(const Workplace& workplace) {
    Words flags;
    if (!workplace.venv().empty()) flags.insert(flags.end(), {"--venv", workplace.venv()});
    if (!workplace.folder().empty()) flags.insert(flags.end(), {"--folder", workplace.folder()});
    return flags;
}

void append(Words& words, const Words& more) { words.insert(words.end(), more.begin(), more.end()); }

Words startOfClient(const std::filesystem::path& program, pid_t server) {
    const auto folder = program.parent_path().parent_path() / "share/numora/python";
    return {NUMORA_PYTHON_PROGRAM, "-I", "-X", "utf8", "-c", bootstrap, folder, program,
            std::to_string(server)};
}

}  // namespace

void ConsoleClient::run() const {
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    std::optional<ConsoleServer> server;
    Words words;
    Words ofConsole{"--program", "Numora " NUMORA_VERSION};
    if (!hasColours) ofConsole.emplace_back("--no-color");
    if (session.hasServer()) {
        const auto address = session.server();
        ::setenv("NUMORA_TOKEN", address.token.c_str(), 1);
        words = startOfClient(program, 0);
        append(words, {"--url", address.url(), "--"});
        ofConsole.push_back(address.url());
    } else {
        auto workplace = session.workplace;
        workplace.find();
        Words flags = flagsOf(workplace);
        append(flags, {"--log-level", logLevel.empty() ? "error" : logLevel});
        server.emplace(program, flags);
        words = startOfClient(program, server->pid());
        append(words, flags);
        words.emplace_back("--");
        if (!logLevel.empty()) ofConsole.emplace_back("--show-log");
        append(ofConsole, {"--own-server", std::to_string(server->pid()), std::to_string(server->output())});
    }
    append(words, ofConsole);
    ::execv(NUMORA_PYTHON_PROGRAM, Arguments(words).get());
    printError(STDERR_FILENO,
               std::string("lines are read plainly, since " NUMORA_PYTHON_PROGRAM " cannot be run: ") +
                   std::strerror(errno));
    if (server) server->end();
}

}  // namespace app
