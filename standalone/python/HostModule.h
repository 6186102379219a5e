#pragma once

namespace standalone {

class InterpreterServices;

/// The Python module `_numora_host`, through which Python code reaches the interpreter around it.
namespace hostmodule {

/// Makes the module known to Python. Before Python is initialised.
void registerModule();

/// Connects the module. `services` outlives Python, or is replaced by null, after which the functions do
/// nothing.
void bind(InterpreterServices* services);

}  // namespace hostmodule

}  // namespace standalone
