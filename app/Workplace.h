#pragma once

#include <string>

namespace CLI {
class App;
}

namespace app {

/// Where an interpreter works: in which folder, and with the packages of which virtual environment.
///
/// Threads: one.
class Workplace {
public:
    Workplace() = default;
    /// Either may be empty: the process stays where it is, and there are the packages of the system.
    Workplace(std::string venv, std::string folder) : venv_(std::move(venv)), folder_(std::move(folder)) {}

    /// Adds --venv and --folder to the command.
    void addTo(CLI::App& command);
    /// Whether one of the options was given.
    bool isChosen() const { return !venv_.empty() || !folder_.empty(); }
    /// Looks at the options and, for a venv that they do not name, at VIRTUAL_ENV; paths become absolute.
    /// Throws: InputError, which names what was given, for a folder that does not exist, and for a virtual
    /// environment that is none or that is for another version of Python.
    void find();
    /// Makes the folder the one of the process, and sets VIRTUAL_ENV and PATH as the environment's own script
    /// for shells does, so that programs that code starts are in it, too. To be called before threads start.
    /// Throws: std::system_error.
    void enter() const;

    /// Empty: none.
    const std::string& venv() const { return venv_; }
    const std::string& folder() const { return folder_; }

private:
    std::string venv_;
    std::string folder_;
};

}  // namespace app
