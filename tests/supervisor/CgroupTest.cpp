#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>
#include <unistd.h>

#include "Cgroup.h"
#include "procfs.h"

using supervisor::CgroupTree;
using supervisor::readText;

TEST(CgroupTest, eachWorkerHasOneWithItsLimitsIfTheServerIsAloneInItsOwn) {
    std::string name = testing::TempDir() + "cgroupXXXXXX";
    const std::filesystem::path folder = ::mkdtemp(name.data());
    const auto write = [&](const std::string& file, const std::string& text) {
        std::ofstream(folder / file) << text;
    };
    const auto read = [&](const std::string& file) { return readText(folder / file); };
    // The files that the kernel would make.
    std::filesystem::create_directory(folder / "gateway");
    std::filesystem::create_directory(folder / "w-lab-3");
    for (const char* file :
         {"cgroup.subtree_control", "gateway/cgroup.procs", "w-lab-3/cgroup.procs", "w-lab-3/cgroup.kill",
          "w-lab-3/cpu.max", "w-lab-3/memory.max", "w-lab-3/memory.oom.group", "w-lab-3/pids.max"})
        write(file, "");
    write("w-lab-3/memory.current", "1000000\n");

    const std::string self = std::to_string(::getpid());
    write("cgroup.procs", "1\n" + self + "\n");
    write("cgroup.controllers", "cpuset cpu io memory pids\n");
    EXPECT_FALSE(CgroupTree::claim(folder)) << "another process is in it";
    write("cgroup.procs", self + "\n");
    write("cgroup.controllers", "cpu pids\n");
    EXPECT_FALSE(CgroupTree::claim(folder)) << "it cannot limit memory";
    EXPECT_EQ(read("gateway/cgroup.procs"), "");
    write("cgroup.controllers", "cpuset cpu io memory pids\n");
    const auto tree = CgroupTree::claim(folder);
    ASSERT_TRUE(tree);
    EXPECT_EQ(read("gateway/cgroup.procs") + read("cgroup.subtree_control"), self + "+memory +cpu +pids");

    const auto cgroup = tree->make({.id = "lab", .life = 3, .cpus = 1.5}, 42);
    ASSERT_TRUE(cgroup);
    EXPECT_EQ(read("w-lab-3/cgroup.procs") + read("w-lab-3/memory.oom.group"), "421");
    EXPECT_EQ(read("w-lab-3/cpu.max"), "150000 100000");
    cgroup->limitMemory(100);
    EXPECT_EQ(read("w-lab-3/memory.max"), "116343360") << "110 MiB and what it had";
    write("w-lab-3/cgroup.procs", "41\n42\n43\n");
    EXPECT_EQ(cgroup->countOthers(42), 2U);
    cgroup->kill();
    EXPECT_EQ(read("w-lab-3/cgroup.kill"), "1");
    write("w-lab-3/memory.events", "max 7\noom_kill 0\noom_group_kill 1\n");
    EXPECT_FALSE(cgroup->wasOutOfMemory());
    write("w-lab-3/memory.events", "max 7\noom_kill 2\noom_group_kill 1\n");
    EXPECT_TRUE(cgroup->wasOutOfMemory());
    std::filesystem::remove_all(folder);
}
