#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace app {

/// Adds the command `kernel`, for clients of notebooks.
void addKernelCommand(CLI::App& program, std::function<int()>& command);

}  // namespace app
