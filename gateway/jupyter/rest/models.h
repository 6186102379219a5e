#pragma once

/// What notebook clients are told of kernels.  Threads: any.

#include <chrono>
#include <string>
#include <vector>

#include "interpreters/Desk.h"

namespace gateway::jupyter {

/// What a kernel is called that a client has made for itself, and one that others may use.
inline constexpr const char* ownKernel = "numora";
inline constexpr const char* sharedKernel = "numora-shared";

std::string kernelModel(const interpreters::Desk& desk);
std::chrono::system_clock::time_point lastActivityOf(const interpreters::Desk& desk);

/// "2026-01-01T00:00:00.000000Z": with as many digits as clients look for.
std::string timeText(std::chrono::system_clock::time_point time);
/// The JSON of an array.
std::string arrayOf(const std::vector<std::string>& elements);

}  // namespace gateway::jupyter
