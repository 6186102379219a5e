#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace app {

/// Adds the command `worker`, which serve starts for each interpreter; users do not see it.
void addWorkerCommand(CLI::App& program, std::function<int()>& command);

}  // namespace app
