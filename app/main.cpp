#include <algorithm>
#include <cstring>
#include <exception>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "CallCommand.h"
#include "ConsoleCommand.h"
#include "DeathsCommand.h"
#include "EvalCommand.h"
#include "InterpretersCommand.h"
#include "InterruptCommand.h"
#include "KernelCommand.h"
#include "RestartCommand.h"
#include "RunCommand.h"
#include "ServeCommand.h"
#include "StatusCommand.h"
#include "WorkerCommand.h"
#include "foundation/log/diagnostic_logger.h"
#include "helpText.h"
#include "optionValues.h"
#include "processSetup.h"
#include "terminal.h"
#include "text.h"

namespace app {

namespace {

constexpr int failure = 1;
constexpr int wrongUsage = 2;

void useFormatOfProgram() {
    foundation::log::setWriter([](const foundation::log::Record& record) {
        std::string line = "numora: ";
        line.append(nameOf(record.severity)).append(": [").append(record.logger).append("] ");
        foundation::log::writeLine(line.append(record.text));
    });
}

void describeProgram(CLI::App& program) {
    program.name("numora");
    program.require_subcommand(0, 1);
    program.set_version_flag("--version", "numora " NUMORA_VERSION);
    program.formatter(helpFormatter());
    program.failure_message(
        [](const CLI::App* used, const CLI::Error& error) { return failureText(*used, error); });
    program
        .add_option_function<std::string>(
            "--log-level",
            [](const std::string& name) {
                requireLogLevel("--log-level", name);
                foundation::log::setLevel(foundation::log::severityFromName(name));
            },
            "How much to log on standard error: debug, info, warning or error (the default, but for serve: "
            "info)")
        ->type_name("LEVEL");
}

// The first word that is no option.
std::string_view commandIn(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (!argument.starts_with('-')) return argument;
        if (argument == "--log-level") ++i;
    }
    return {};
}

// Last first, as the parser takes them. It would take "[1, 2]" for a list of two arguments, were it not for
// the newline, which changes no code. It leaves the arguments of a script as they are.
std::vector<std::string> argumentsFrom(int argc, char** argv) {
    std::vector<std::string> arguments(std::reverse_iterator(argv + argc), std::reverse_iterator(argv + 1));
    if (commandIn(argc, argv) == "run") return arguments;
    for (auto& argument : arguments) {
        if (argument.starts_with('[') && argument.ends_with(']')) argument += '\n';
    }
    return arguments;
}

// Programs of all users can see the arguments of a process.
void hideTokens(int argc, char** argv) {
    constexpr std::string_view option = "--token";
    constexpr std::string_view given = "token=";  // of an option or an address
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        const bool isAddress = argument.find("://") != std::string_view::npos;
        char* begin = argument == option ? argv[i + 1] : nullptr;
        if (argument.starts_with("--token=") || isAddress) {
            begin = std::strstr(argv[i], given.data());
            if (begin != nullptr) begin += given.size();
        }
        if (begin != nullptr) std::fill_n(begin, std::strlen(begin), '*');
    }
}

int run(int argc, char** argv) {
    prepareProcess();
    useFormatOfProgram();
    // A failed request is reported by its faults; the library's warnings about it would only repeat them.
    foundation::log::setLevel(foundation::log::Severity::Error);
    CLI::App program("Runs code in a numerical interpreter.");
    std::function<int()> command;
    describeProgram(program);
    addEvalCommand(program, command);
    addCallCommand(program, command);
    addConsoleCommand(program, command);
    addRunCommand(program, command);
    addServeCommand(program, command);
    addWorkerCommand(program, command);
    addRestartCommand(program, command);
    addDeathsCommand(program, command);
    addInterpretersCommand(program, command);
    addInterruptCommand(program, command);
    addKernelCommand(program, command);
    addStatusCommand(program, command);
    try {
        program.parse(argumentsFrom(argc, argv));
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? 0 : wrongUsage;
    }
    if (!command) {
        writeAll(STDERR_FILENO, program.help());
        return wrongUsage;
    }
    hideTokens(argc, argv);
    return command();
}

}  // namespace

}  // namespace app

int main(int argc, char** argv) {
    try {
        return app::run(argc, argv);
    } catch (const app::ClosedPipe&) {
        return app::failure;
    } catch (const app::InputError& error) {
        app::printError(STDERR_FILENO, error.what());
        return app::wrongUsage;
    } catch (const std::exception& error) {
        app::printError(STDERR_FILENO, error.what());
        return app::failure;
    } catch (...) {
        app::printError(STDERR_FILENO, "an unknown error");
        return app::failure;
    }
}
