#include <csignal>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "link/BlackBox.h"

namespace links {
namespace {

class BlackBoxTest : public testing::Test {
public:
    ~BlackBoxTest() override { ::close(fd_); }

protected:
    const int fd_ = createBlackBox();
};

TEST_F(BlackBoxTest, holdsTheRequestUnderWayAndTheEndOfTheOutput) {
    BlackBox box(fd_);
    EXPECT_EQ(readBlackBox(fd_).type + readBlackBox(fd_).output, "");
    std::string code(4095, 'c');
    box.setRequest("Eval", "uuid-1", code + "é");
    box.addOutput("first\n");
    LastWords words = readBlackBox(fd_);
    EXPECT_EQ(words.type + ' ' + words.uuid + ' ' + words.output, "Eval uuid-1 first\n");
    EXPECT_EQ(words.code, code);
    box.clearRequest();
    std::string all;
    for (int i = 0; i < 100'000; ++i) all += "é";
    box.addOutput(all + "x");
    words = readBlackBox(fd_);
    EXPECT_EQ(words.type + words.uuid + words.code, "");
    EXPECT_EQ(words.output.size(), 48U * 1024 - 1) << "no half of a character";
    EXPECT_TRUE((all + "x").ends_with(words.output));
    EXPECT_NE(::ftruncate(fd_, 100), 0);
}

// Whenever a process dies, its box names one request and its output has no hole.
TEST_F(BlackBoxTest, isWholeAfterAKillAtAnyMoment) {
    for (int round = 0; round < 30; ++round) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            BlackBox box(fd_);
            for (int i = 0;; ++i) {
                const std::string number = std::to_string(i);
                box.setRequest(number, number, number);
                box.addOutput(number + '\n');
            }
        }
        const std::string before = readBlackBox(fd_).uuid;
        while (readBlackBox(fd_).uuid == before) std::this_thread::yield();
        for (int i = 0; i < round; ++i) readBlackBox(fd_);  // a moment, of another length in each round
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        const LastWords words = readBlackBox(fd_);
        EXPECT_EQ(words.type, words.uuid);
        EXPECT_EQ(words.code, words.uuid);
        std::istringstream lines(words.output.substr(words.output.find('\n') + 1));
        long last = -1;
        for (long line = 0; lines >> line; last = line)
            EXPECT_TRUE(last < 0 || line == last + 1 || line == 0) << line;
    }
}

TEST(ScribbledBlackBoxTest, isReadWithoutHarm) {
    std::minstd_rand random(1);
    for (const off_t size : {0, 1, 8, 100, 9000, 70'000, 131'072}) {
        for (int round = 0; round < 20; ++round) {
            const int fd = ::memfd_create("scribbled", MFD_CLOEXEC);
            std::string bytes(static_cast<std::size_t>(size), '\xFF');
            for (std::size_t i = 0; round > 0 && i < bytes.size(); ++i) {
                // Sizes that are small enough to be believed are rare among random ones.
                bytes[i] = static_cast<char>(random() % 3 == 0 ? random() : 0);
            }
            ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), size);
            const LastWords words = readBlackBox(fd);
            EXPECT_LE(words.type.size() + words.uuid.size() + words.code.size(), 4480U);
            EXPECT_LE(words.output.size(), 48U * 1024);
            ::close(fd);
        }
    }
    EXPECT_EQ(readBlackBox(-1).output, "");
}

}  // namespace
}  // namespace links
