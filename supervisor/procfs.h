#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include <sys/types.h>

/// What the kernel tells of processes. A process that has ended, or a file that cannot be read, counts as 0.
///
/// Threads: any.  Throws: std::bad_alloc only.

namespace supervisor {

/// The content of a small file.
std::string readText(const std::filesystem::path& path);

/// Writes to a file that the kernel offers. Returns 0 or the error's number.
int writeText(const std::filesystem::path& path, std::string_view text);

/// The number that follows `name` in a text of lines, such as "oom_kill 3" or "VmRSS:    120 kB".
std::uint64_t numberAfter(std::string_view text, std::string_view name);

/// One of the sizes in /proc/<pid>/status, such as "VmRSS:", in bytes.
std::uint64_t statusBytes(pid_t pid, std::string_view name);

/// Whether a process has begun to end, or has ended. Its descriptors are closed later.
bool isEnding(pid_t pid);

/// How many processes of the group live, apart from its leader.
std::uint64_t countMembers(pid_t group);

}  // namespace supervisor
