#pragma once

#include <string>
#include <vector>

#include "supervisor/Worker.h"
#include "supervisor/WorkerSpec.h"

namespace supervisor {

/// The environment of this process, as far as workers get it: no NUMORA_* but NUMORA_BUNDLES.
/// Threads: none may change the environment meanwhile.
std::vector<std::string> inheritedEnvironment();

/// Starts a process with these descriptors, and no others: 0 /dev/null; 1, 2 write ends of two pipes; 3 main,
/// 4 control socket; 5 black box, 6 trace (files in memory); 7, 8 read ends of the pipes. It leads a session
/// and a group of its own, with default signals, none of them blocked.
///
/// Never a fork, since this process has threads. The one that calls must live as long as the worker may: the
/// worker asks for a signal when it ends.
///
/// Throws: std::runtime_error with what was wrong, in words; nothing is left over then.
Process spawn(const WorkerSpec& spec, std::vector<std::string> environment);

}  // namespace supervisor
