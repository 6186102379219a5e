#include "KernelCommand.h"

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "KernelInstall.h"
#include "KernelProcess.h"
#include "KernelRelay.h"
#include "SessionOptions.h"
#include "foundation/log/diagnostic_logger.h"
#include "terminal.h"
#include "text.h"

namespace app {

namespace {

struct KernelOptions {
    std::string connectionFile;
    SessionOptions session;
    std::string history;  ///< empty: the file of the user
    bool isNew = false;   ///< an interpreter that is made for the kernel

    // Of the commands that install.
    std::string name = "numora";
    std::string displayName;
    KernelFolder where;

    bool hasFolder() const { return where.isOfUser || !where.prefix.empty(); }
};

// Front ends are often started in a virtual environment of their own, which may be for another Python.
void findWorkplace(Workplace& workplace) {
    try {
        workplace.find();
    } catch (const InputError& error) {
        const char* const active = std::getenv("VIRTUAL_ENV");
        if (active == nullptr || workplace.venv() != active) throw;
        foundation::log::DiagnosticLogger("numora").warning(
            std::string(error.what()) + "; the kernel uses no virtual environment. --venv names another.");
        ::unsetenv("VIRTUAL_ENV");
        workplace = Workplace({}, workplace.folder());
        workplace.find();
    }
}

constexpr std::string_view noHistory = "none";

// Empty: none is kept.
std::filesystem::path historyFile(const std::string& chosen) {
    if (chosen == noHistory) return {};
    if (!chosen.empty()) return std::filesystem::absolute(chosen);  // code may go to another folder
    const auto folder = [](const char* variable) {
        const char* const value = std::getenv(variable);
        return value != nullptr && *value == '/' ? std::filesystem::path(value) : std::filesystem::path();
    };
    auto state = folder("XDG_STATE_HOME");
    if (const auto home = folder("HOME"); state.empty() && !home.empty()) state = home / ".local/state";
    return state.empty() ? state : state / "numora/notebooks.sqlite";
}

int serve(const KernelOptions& options) {
    if (options.connectionFile.empty()) throw InputError("-f FILE is required");
    if (options.session.hasServer())
        return runKernelRelay(options.connectionFile, options.session.server(), options.isNew);
    Workplace workplace = options.session.workplace;
    findWorkplace(workplace);
    return runKernelProcess(options.connectionFile, workplace, historyFile(options.history));
}

// What a kernel that is installed is started with, and whether a token is left out.
std::vector<std::string> argumentsOf(const KernelOptions& options, bool& hasToken) {
    std::vector<std::string> arguments;
    const auto add = [&](const char* option, const std::string& value) {
        if (!value.empty()) arguments.insert(arguments.end(), {option, value});
    };
    if (options.session.hasServer()) {
        SessionOptions session = options.session;
        const auto address = session.server();
        hasToken = !address.token.empty();
        add("--url", address.url());
        if (options.isNew) arguments.emplace_back("--new");
        return arguments;
    }
    Workplace workplace = options.session.workplace;
    const bool hasVenv = !workplace.venv().empty();
    if (workplace.isChosen()) workplace.find();
    if (hasVenv) add("--venv", workplace.venv());
    add("--folder", workplace.folder());
    if (!options.history.empty() && options.history != noHistory)
        add("--history", std::filesystem::absolute(options.history));
    else
        add("--history", options.history);
    return arguments;
}

int install(const KernelOptions& options) {
    bool hasToken = false;
    const auto arguments = argumentsOf(options, hasToken);
    std::string title = options.displayName;
    if (title.empty() && options.session.hasServer()) {
        const auto address = options.session.server();
        title = "Numora (" + address.authority() +
                (address.interpreter.empty() ? "" : ", " + address.interpreter) + ")";
    }
    requireUtf8("--display-name", title);
    const auto folder =
        installKernel(options.where, options.name, title.empty() ? "Numora" : title, arguments);
    std::string told = "Installed the kernel in " + folder.string() + "\n";
    if (hasToken)
        told += "The token is not in its files: NUMORA_TOKEN must hold it where the front end runs.\n";
    writeAll(STDOUT_FILENO, told);
    return 0;
}

int uninstall(const KernelOptions& options) {
    const auto folder = uninstallKernel(options.hasFolder() ? &options.where : nullptr, options.name);
    writeAll(STDOUT_FILENO, "Removed " + folder.string() + "\n");
    return 0;
}

int list(const KernelOptions&) {
    std::string text;
    for (const auto& kernel : installedKernels()) {
        text += kernel.name + "\t" + kernel.displayName + "\t" + kernel.folder.string() + "\n";
    }
    writeAll(STDOUT_FILENO, text.empty() ? "No kernel is installed: numora kernel install\n" : text);
    return 0;
}

void addPlace(CLI::App& command, KernelOptions& options) {
    command.add_option("--name", options.name, "The kernel's name (default: numora)")->type_name("NAME");
    auto* user = command.add_flag("--user", options.where.isOfUser, "In the folder of this user");
    command.add_option("--prefix", options.where.prefix, "In DIR/share/jupyter/kernels")
        ->type_name("DIR")
        ->excludes(user);
}

}  // namespace

void addKernelCommand(CLI::App& program, std::function<int()>& command) {
    auto options = std::make_shared<KernelOptions>();
    CLI::App* kernel = program.add_subcommand("kernel", "Run code for Jupyter's notebooks");
    kernel->fallthrough();
    kernel->require_subcommand(0, 1);
    kernel->add_option("-f", options->connectionFile, "The connection file that the front end has written")
        ->type_name("FILE");
    options->session.addTo(*kernel);
    kernel
        ->add_option("--history", options->history,
                     "Keep the cells in FILE, or nowhere: none (default: a file of the user)")
        ->type_name("FILE")
        ->excludes(kernel->get_option("--url"));
    kernel
        ->add_flag("--new", options->isNew,
                   "With an interpreter of the server that is made for it, and removed with it")
        ->needs(kernel->get_option("--url"))
        ->excludes(kernel->get_option("--interpreter"));
    // What front ends start is what was installed, wherever they run.
    kernel->get_option("--url")->envname("");
    const auto run = [options, &command](int (*function)(const KernelOptions&)) {
        return
            [options, &command, function] { command = [options, function] { return function(*options); }; };
    };
    kernel->callback([command = run(serve), kernel, &program] {
        if (!kernel->get_subcommands().empty()) return;
        // Nobody else tells what clients are refused.
        if (program.get_option("--log-level")->count() == 0)
            foundation::log::setLevel(foundation::log::Severity::Warning);
        command();
    });
    CLI::App* installed = kernel->add_subcommand("install", "Have front ends offer it");
    installed->fallthrough()->callback(run(install));
    addPlace(*installed, *options);
    installed
        ->add_option("--display-name", options->displayName,
                     "What front ends call it (default: Numora, with the server)")
        ->type_name("TEXT");
    CLI::App* removed = kernel->add_subcommand("uninstall", "Have them offer it no longer");
    removed->fallthrough()->callback(run(uninstall));
    addPlace(*removed, *options);
    kernel->add_subcommand("list", "List those that are installed")->fallthrough()->callback(run(list));
}

}  // namespace app
