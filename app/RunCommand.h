#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace app {

/// Adds `numora run` to the program's command line; when it is given, `command` becomes what is to run.
/// It returns the exit status.
void addRunCommand(CLI::App& program, std::function<int()>& command);

}  // namespace app
