#include <array>
#include <atomic>
#include <cstddef>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/log/LineWriter.h"
#include "foundation/log/diagnostic_logger.h"
#include "support/threads.h"

namespace {

using namespace std::chrono_literals;
using foundation::log::DiagnosticLogger;
using foundation::log::flush;

/// Takes what the log writes.
class LogTest : public testing::Test {
protected:
    LogTest() {
        EXPECT_EQ(::pipe(ends_.data()), 0);
        foundation::log::setDescriptor(ends_[1]);
        ::close(ends_[1]);
    }
    ~LogTest() override {
        ::close(ends_[0]);
        flush(60s);
        foundation::log::setDescriptor(STDERR_FILENO);
    }

    /// What is written until nothing waits any more, and after the last line a mark.
    std::vector<std::string> lines() {
        std::vector<std::string> lines;
        std::string text;
        std::thread reader([&] {
            std::array<char, 65536> buffer{};
            while (!text.ends_with("THE END\n")) {
                const ssize_t count = ::read(ends_[0], buffer.data(), buffer.size());
                if (count <= 0) return;
                text.append(buffer.data(), static_cast<std::size_t>(count));
            }
        });
        EXPECT_TRUE(flush(60s));
        foundation::log::writeLine("THE END");
        reader.join();
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) lines.push_back(line);
        lines.pop_back();
        return lines;
    }

private:
    std::array<int, 2> ends_{-1, -1};
};

TEST_F(LogTest, waitsForNoReaderAndSaysHowManyLinesWereLost) {
    constexpr int eachThread = 2500;
    onThreads(4, [](int) {
        for (int line = 0; line < eachThread; ++line) DiagnosticLogger("test").error(std::string(1000, 'x'));
    });
    EXPECT_FALSE(flush(1ms));

    std::size_t written = 0;
    std::size_t lost = 0;
    for (const auto& line : lines()) {
        if (line.ends_with(" error [test] " + std::string(1000, 'x'))) {
            ++written;
        } else {
            EXPECT_TRUE(line.ends_with(" log lines were lost.")) << line;
            lost += std::stoul(line);
        }
    }
    EXPECT_EQ(written + lost, 4 * eachThread);
    EXPECT_GT(lost, 0);
}

TEST_F(LogTest, countsWhatAFullDiskDoesNotTake) {
    auto& writer = foundation::log::LineWriter::make();
    writer.setDescriptor(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    writer.write("a");
    writer.write("b");
    EXPECT_TRUE(writer.flush(60s));
    const std::string name = testing::TempDir() + "numora-log";
    const int file = ::open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    writer.setDescriptor(file);
    writer.setLossNotice([](std::size_t lost) { return "lost " + std::to_string(lost); });
    writer.write("c");
    EXPECT_TRUE(writer.flush(60s));
    std::array<char, 100> text{};
    EXPECT_EQ(::pread(file, text.data(), text.size(), 0), 9);
    EXPECT_STREQ(text.data(), "c\nlost 2\n");
    ::unlink(name.c_str());
}

TEST_F(LogTest, writesOneLineForARecordWhateverItHolds) {
    DiagnosticLogger("test").error("a\r\nb\tc\x1b[31m\x7f \xC2\x85\xE2\x80\xA8 \xC3\xA9\xE6\xBC\xA2 \\\n\n");
    foundation::log::writeLine(std::string(1U << 20, 'x'));
    const auto written = lines();
    ASSERT_EQ(written.size(), 2);
    EXPECT_TRUE(
        written[0].ends_with("[test] a\\r\\nb\\tc\\x1b[31m\\u007f \\u0085\\u2028 \xC3\xA9\xE6\xBC\xA2 \\"))
        << written[0];
    EXPECT_EQ(written[1], std::string(16384, 'x') + " ... and 1032192 bytes more");
}

#ifndef __SANITIZE_THREAD__  // which lets no child of several threads start one
TEST_F(LogTest, isThereInAChildThatIsForkedWhileOthersLog) {
    constexpr int children = 100;
    std::atomic<bool> isOver{false};
    std::jthread others([&isOver] {
        onThreads(2, [&isOver](int) {
            while (!isOver) DiagnosticLogger("test").error("of the parent");
        });
    });
    int good = 0;
    for (int i = 0; i < children; ++i) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(30);  // for a child that hangs
            foundation::log::setDescriptor(::open("/dev/null", O_WRONLY));
            DiagnosticLogger("test").error("of the child");
            ::_exit(flush(20s) ? 0 : 1);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        if (status == 0) ++good;
    }
    isOver = true;
    EXPECT_EQ(good, children);
}
#endif

}  // namespace
