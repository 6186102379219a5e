#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace supervisor {

/// What a worker process is started with.
struct WorkerSpec {
    std::string id;          ///< the interpreter's
    std::uint64_t life = 0;  ///< which life of the interpreter it is; for the record
    std::filesystem::path program = "/proc/self/exe";
    std::vector<std::string> arguments = {"worker"};
    std::filesystem::path folder{};            ///< the working directory; empty: that of this process
    std::filesystem::path venv{};              ///< for the worker alone; not used by the start
    std::map<std::string, std::string> env{};  ///< in addition to the environment of this process
    std::uint64_t memoryMiB = 0;               ///< 0: no limit
    double cpus = 0;                           ///< 0: no limit
};

}  // namespace supervisor
