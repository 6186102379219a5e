#include <fstream>

#include <unistd.h>

#include "RunningInterpreter.h"

namespace {

class SoakTest : public RunningInterpreter {
protected:
    /// Evaluates so many times. Returns what memory the process has afterwards, in bytes.
    std::size_t evaluateMany(int count) {
        for (int i = 0; i < count; ++i) eval(u"x = [i for i in range(10)]\nprint(x)\nlen(x)");
        std::ifstream statm("/proc/self/statm");
        std::size_t total = 0, resident = 0;
        statm >> total >> resident;
        return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    }
};

// Sanitizers keep freed memory on purpose: they see the loop, and its growth is measured without them.
TEST_F(SoakTest, manyEvaluationsLeaveMemoryFlat) {
    const std::size_t before = evaluateMany(500);
    const std::size_t after = evaluateMany(5'000);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(after, before + (std::size_t{4} << 20));
#else
    EXPECT_GT(after, std::size_t{0}) << before;
#endif
}

}  // namespace
