#include "Workplace.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "standalone/virtualEnvironment.h"
#include "text.h"

namespace app {

namespace fs = std::filesystem;

void Workplace::addTo(CLI::App& command) {
    command
        .add_option("--venv", venv_,
                    "The virtual environment of an interpreter of its own (default: VIRTUAL_ENV)")
        ->type_name("DIR");
    command.add_option("--folder", folder_, "The folder in which an interpreter of its own works")
        ->type_name("DIR");
}

void Workplace::find() {
    std::string source = "--venv";
    const char* const active = std::getenv("VIRTUAL_ENV");
    if (venv_.empty() && active != nullptr) {
        source = "VIRTUAL_ENV";
        venv_ = active;
    }
    if (!venv_.empty()) {
        venv_ = fs::absolute(venv_).string();
        try {
            standalone::programOf(venv_);
        } catch (const std::runtime_error& problem) {
            throw InputError(source + ": " + problem.what());
        }
    }
    if (!folder_.empty()) {
        std::error_code error;
        if (!fs::is_directory(folder_, error))
            throw InputError("--folder must be an existing folder: " + folder_);
        folder_ = fs::absolute(folder_).string();
    }
}

void Workplace::enter() const {
    if (!folder_.empty() && ::chdir(folder_.c_str()) != 0)
        throw std::system_error(errno, std::generic_category(), "the folder " + folder_ + " cannot be used");
    if (venv_.empty()) return;
    const char* const path = std::getenv("PATH");
    ::setenv("VIRTUAL_ENV", venv_.c_str(), 1);
    ::setenv("PATH", (venv_ + "/bin" + (path != nullptr ? ":" + std::string(path) : "")).c_str(), 1);
    ::unsetenv("PYTHONHOME");
}

}  // namespace app
