#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace app {

/// Adds `numora status` to the program's command line; when it is given, `command` becomes what is to run.
/// It returns the exit status.
void addStatusCommand(CLI::App& program, std::function<int()>& command);

}  // namespace app
