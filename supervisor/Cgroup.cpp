#include "Cgroup.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sstream>

#include <unistd.h>

#include "log.h"
#include "procfs.h"

namespace supervisor {

namespace {

namespace fs = std::filesystem;

constexpr int periodUs = 100'000;
constexpr int tasksLimit = 4096;  // threads count

bool hasWord(const std::string& text, const std::string& word) {
    std::istringstream words(text);
    return std::find(std::istream_iterator<std::string>(words), {}, word) !=
           std::istream_iterator<std::string>();
}

}  // namespace

void Cgroup::limitEarly(double cpus) const {
    set("memory.oom.group", "1");
    set("pids.max", std::to_string(tasksLimit));
    // The least that the kernel takes is a millisecond.
    const int quotaUs = std::max(1000, static_cast<int>(cpus * periodUs));
    if (cpus > 0) set("cpu.max", std::to_string(quotaUs) + " " + std::to_string(periodUs));
}

void Cgroup::limitMemory(std::uint64_t memoryMiB) const {
    const std::uint64_t now = std::strtoull(readText(folder_ / "memory.current").c_str(), nullptr, 10);
    set("memory.max", std::to_string(now + (memoryMiB << 20) / 10 * 11));
}

bool Cgroup::add(pid_t pid) const { return writeText(folder_ / "cgroup.procs", std::to_string(pid)) == 0; }

std::uint64_t Cgroup::countOthers(pid_t leader) const {
    std::istringstream members(readText(folder_ / "cgroup.procs"));
    return static_cast<std::uint64_t>(std::count_if(std::istream_iterator<pid_t>(members), {},
                                                    [leader](pid_t member) { return member != leader; }));
}

void Cgroup::kill() const { set("cgroup.kill", "1"); }

bool Cgroup::wasOutOfMemory() const {
    return numberAfter(readText(folder_ / "memory.events"), "oom_kill") > 0;
}

void Cgroup::set(const char* file, const std::string& value) const {
    if (const int error = writeText(folder_ / file, value); error != 0)
        log().warning("cannot set " + (folder_ / file).string() + ": " + std::strerror(error));
}

std::unique_ptr<CgroupTree> CgroupTree::claim(const fs::path& folder) {
    const std::string controllers = readText(folder / "cgroup.controllers");
    const std::string self = std::to_string(::getpid());
    // Processes may only be in the leaves of the tree, and those of others are not ours to move.
    if (!hasWord(controllers, "memory") || readText(folder / "cgroup.procs") != self + "\n") return nullptr;
    std::error_code problem;
    fs::create_directory(folder / "gateway", problem);
    if (problem || writeText(folder / "gateway/cgroup.procs", self) != 0) return nullptr;
    std::string wanted;
    for (const char* controller : {"memory", "cpu", "pids"})
        if (hasWord(controllers, controller)) wanted += std::string(wanted.empty() ? "+" : " +") + controller;
    if (writeText(folder / "cgroup.subtree_control", wanted) != 0) {
        writeText(folder / "cgroup.procs", self);
        fs::remove(folder / "gateway", problem);
        return nullptr;
    }
    return std::unique_ptr<CgroupTree>(new CgroupTree(folder));
}

std::unique_ptr<Cgroup> CgroupTree::make(const WorkerSpec& spec, pid_t pid) const {
    std::error_code problem;
    // Those of the dead cannot be removed before all their processes are gone, and those of the living never.
    for (fs::directory_iterator at(folder_, problem), end; !problem && at != end; at.increment(problem))
        if (at->path().filename().string().starts_with("w-")) ::rmdir(at->path().c_str());
    // A name for each life: nothing is counted for the next.
    const fs::path folder = folder_ / ("w-" + spec.id + "-" + std::to_string(spec.life));
    fs::create_directory(folder, problem);
    auto made = std::make_unique<Cgroup>(folder);
    if (problem || !made->add(pid)) return nullptr;
    made->limitEarly(spec.cpus);
    return made;
}

fs::path CgroupTree::ownFolder() {
    std::istringstream groups(readText("/proc/self/cgroup"));
    for (std::string line; std::getline(groups, line);)
        if (line.starts_with("0::/")) return "/sys/fs/cgroup/" + line.substr(4);
    return {};
}

}  // namespace supervisor
