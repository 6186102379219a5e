#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>
#include <unistd.h>

#include "Cgroup.h"
#include "procfs.h"

using supervisor::CgroupTree;
using supervisor::readText;

namespace {

/// A folder with the files that the kernel would make.
class CgroupTest : public testing::Test {
protected:
    CgroupTest() {
        write("cgroup.controllers", "cpuset cpu io memory pids\n");
        write("cgroup.procs", self_ + "\n");
        write("cgroup.subtree_control", "");
        write("gateway/cgroup.procs", "");
        for (const char* file :
             {"cgroup.procs", "cgroup.kill", "cpu.max", "memory.max", "memory.oom.group", "pids.max"})
            write(std::string("w-lab-3/") + file, "");
        write("w-lab-3/memory.current", "1000000\n");
    }
    ~CgroupTest() override { std::filesystem::remove_all(folder_); }

    void write(const std::string& file, const std::string& text) const {
        std::filesystem::create_directories((folder_ / file).parent_path());
        std::ofstream(folder_ / file) << text;
    }
    std::string read(const std::string& file) const { return readText(folder_ / file); }

    const std::string self_ = std::to_string(::getpid());
    std::string name_ = testing::TempDir() + "cgroupXXXXXX";
    const std::filesystem::path folder_ = ::mkdtemp(name_.data());
};

}  // namespace

TEST_F(CgroupTest, eachWorkerHasOneWithItsLimits) {
    const auto tree = CgroupTree::claim(folder_);
    ASSERT_TRUE(tree);
    EXPECT_EQ(read("gateway/cgroup.procs"), self_);
    EXPECT_EQ(read("cgroup.subtree_control"), "+memory +cpu +pids");
    const auto cgroup = tree->make({.id = "lab", .life = 3, .memoryMiB = 100, .cpus = 1.5}, 42);
    ASSERT_TRUE(cgroup);
    EXPECT_EQ(read("w-lab-3/cgroup.procs"), "42");
    EXPECT_EQ(read("w-lab-3/cpu.max"), "150000 100000");
    EXPECT_EQ(read("w-lab-3/memory.oom.group"), "1");
    cgroup->limitMemory(100);
    EXPECT_EQ(read("w-lab-3/memory.max"), "116343360") << "110 MiB and what it had";
    write("w-lab-3/cgroup.procs", "41\n42\n43\n");
    EXPECT_EQ(cgroup->countOthers(42), 2U);
    cgroup->kill();
    EXPECT_EQ(read("w-lab-3/cgroup.kill"), "1");
    write("w-lab-3/memory.events", "max 7\noom 1\noom_kill 0\noom_group_kill 0\n");
    EXPECT_FALSE(cgroup->wasOutOfMemory());
    write("w-lab-3/memory.events", "max 7\noom 1\noom_kill 2\noom_group_kill 1\n");
    EXPECT_TRUE(cgroup->wasOutOfMemory());
}

TEST_F(CgroupTest, oneThatIsNotForThisProcessAloneIsLeftAlone) {
    write("cgroup.procs", "1\n" + self_ + "\n");
    EXPECT_FALSE(CgroupTree::claim(folder_));
    write("cgroup.procs", self_ + "\n");
    write("cgroup.controllers", "cpu pids\n");
    EXPECT_FALSE(CgroupTree::claim(folder_)) << "it cannot limit memory";
    EXPECT_EQ(read("gateway/cgroup.procs") + read("cgroup.subtree_control"), "");
}
