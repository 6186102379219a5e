#pragma once

#include <string>

namespace supervisor {

/// "SIGSEGV", "SIGRTMIN+2".  Threads: any.
std::string signalName(int signal);

/// The meaning of a signal by its name, in small letters: "segmentation fault"; empty for a name that is
/// none, or for a real-time signal.  Threads: any.
std::string signalMeaning(const std::string& name);

}  // namespace supervisor
