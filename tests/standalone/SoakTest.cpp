#include <fstream>
#include <string>

#include <unistd.h>

#include "RunningInterpreter.h"

namespace {

class SoakTest : public RunningInterpreter {
protected:
    static std::size_t residentKiB() {
        std::ifstream statm("/proc/self/statm");
        std::size_t total = 0;
        std::size_t resident = 0;
        statm >> total >> resident;
        return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / 1024;
    }
    void evaluateMany(int count) {
        for (int i = 0; i < count; ++i) eval(u"x = [i for i in range(10)]\nprint(x)\nlen(x)");
    }
};

// Sanitizers keep freed memory on purpose, so they see the loop, and its growth is measured without them.
TEST_F(SoakTest, manyEvaluationsLeaveMemoryFlat) {
    evaluateMany(500);
    const std::size_t before = residentKiB();
    evaluateMany(5'000);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(residentKiB(), before + 4'096);
#else
    EXPECT_GT(before, 0U);
#endif
}

}  // namespace
